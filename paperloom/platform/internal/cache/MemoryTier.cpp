#include "paperloom/platform/internal/cache/MemoryTier.h"

#include <algorithm>
#include <utility>

namespace paperloom::internal {

MemoryTier::MemoryTier(std::int64_t capacity) : capacity_(std::max<std::int64_t>(capacity, 0)) {}

bool MemoryTier::mayHold(const CacheKey& key) const {
  const MutexLock lock(mutex_);
  return variants_.contains(key.url);
}

MemoryTier::Entry MemoryTier::find(const CacheKey& key, VaryMatcher& request) {
  const MutexLock lock(mutex_);
  const auto variants = variants_.find(key.url);
  if (variants == variants_.end()) return nullptr;
  // Of several that fit, the most recent (RFC 9111 section 4.1).
  std::optional<Nodes::iterator> best;
  for (const Nodes::iterator node : variants->second) {
    const CacheEntry& entry = *node->entry;
    if (!request.matches(entry.vary.names, entry.vary.digest)) continue;
    if (best && (*best)->entry->response.responseTime >= entry.response.responseTime) continue;
    best = node;
  }
  if (!best) return nullptr;
  nodes_.splice(nodes_.begin(), nodes_, *best);
  return (*best)->entry;
}

void MemoryTier::store(const CacheKey& key, VaryMatcher& request, CacheEntry entry) {
  const MutexLock lock(mutex_);
  ++changes_[slot(key)];
  dropMatching(key, request);
  insert(key, std::move(entry));
}

void MemoryTier::removeMatching(const CacheKey& key, VaryMatcher& request) {
  const MutexLock lock(mutex_);
  ++changes_[slot(key)];
  dropMatching(key, request);
}

void MemoryTier::remove(const CacheKey& key) {
  const MutexLock lock(mutex_);
  ++changes_[slot(key)];
  const auto variants = variants_.find(key.url);
  if (variants == variants_.end()) return;
  // Over a copy: drop() shortens the list, and with its last node takes it away.
  for (const Nodes::iterator node : Variants(variants->second)) drop(node);
}

void MemoryTier::clear() {
  const MutexLock lock(mutex_);
  // What is on its way up from the disk was read before, and may not come back.
  for (std::uint64_t& count : changes_) ++count;
  dropAll();
}

void MemoryTier::enterGeneration(std::uint64_t generation) {
  const MutexLock lock(mutex_);
  if (generation <= generation_) return;
  generation_ = generation;
  dropAll();
}

MemoryTier::Ticket MemoryTier::ticket(const CacheKey& key) const {
  const MutexLock lock(mutex_);
  return {generation_, changes_[slot(key)]};
}

void MemoryTier::promote(const CacheKey& key, VaryMatcher& request, CacheEntry entry,
                         Ticket ticket) {
  const MutexLock lock(mutex_);
  // Read from the disk without the lock: something newer may have been stored, or it removed.
  if (ticket.generation != generation_ || ticket.changes != changes_[slot(key)]) return;
  if (!fits(entry)) return;
  dropMatching(key, request);
  insert(key, std::move(entry));
}

std::int64_t MemoryTier::capacity() const {
  const MutexLock lock(mutex_);
  return capacity_;
}

void MemoryTier::setCapacity(std::int64_t bytes) {
  const MutexLock lock(mutex_);
  capacity_ = std::max<std::int64_t>(bytes, 0);
  shrink();
}

std::int64_t MemoryTier::usage() const {
  const MutexLock lock(mutex_);
  return usage_;
}

std::vector<MemoryTier::Entry> MemoryTier::entries() const {
  const MutexLock lock(mutex_);
  std::vector<Entry> all;
  all.reserve(nodes_.size());
  for (const Node& node : nodes_) all.push_back(node.entry);
  return all;
}

void MemoryTier::insert(const CacheKey& key, CacheEntry entry) {
  if (!fits(entry)) return;
  usage_ += entry.size;
  nodes_.push_front({key.url, std::make_shared<const CacheEntry>(std::move(entry))});
  Variants& variants = variants_[key.url];
  variants.push_back(nodes_.begin());
  // A server that varies by what every request changes must not fill the tier with one address.
  if (variants.size() > variantsPerURL) drop(variants.front());
  shrink();
}

void MemoryTier::dropMatching(const CacheKey& key, VaryMatcher& request) {
  const auto variants = variants_.find(key.url);
  if (variants == variants_.end()) return;
  for (const Nodes::iterator node : Variants(variants->second)) {
    if (request.matches(node->entry->vary.names, node->entry->vary.digest)) drop(node);
  }
}

void MemoryTier::drop(Nodes::iterator node) {
  const auto variants = variants_.find(node->url);
  std::erase(variants->second, node);
  if (variants->second.empty()) variants_.erase(variants);
  usage_ -= node->entry->size;
  nodes_.erase(node);
}

void MemoryTier::dropAll() {
  variants_.clear();
  nodes_.clear();
  usage_ = 0;
}

void MemoryTier::shrink() {
  while (usage_ > capacity_ && !nodes_.empty()) drop(std::prev(nodes_.end()));
}

std::size_t MemoryTier::slot(const CacheKey& key) {
  return static_cast<std::size_t>(key.firstId / variantsPerURL) % slots;
}

}  // namespace paperloom::internal
