#include "paperloom/platform/internal/cache/URLCacheStore.h"

#include <algorithm>
#include <chrono>
#include <deque>
#include <unordered_set>
#include <utility>

#include "paperloom/platform/ApplicationDirectories.h"

namespace paperloom::internal {
namespace {

// How long a call may wait for locks, all of them together.
constexpr std::chrono::milliseconds lockWait{250};

DiskTier::Deadline inAWhile() { return std::chrono::steady_clock::now() + lockWait; }

bool isKept(const std::string& method) { return method == "GET" || method == "HEAD"; }

}  // namespace

URLCacheStore::URLCacheStore(std::int64_t memoryCapacity, std::int64_t diskCapacity,
                             std::filesystem::path diskPath)
    : memory_(memoryCapacity),
      diskCapacity_(std::max<std::int64_t>(diskCapacity, 0)),
      diskPath_(std::move(diskPath)) {}

URLCacheStore::~URLCacheStore() {
  if (disk_) disk_->detach(&memory_);
}

std::optional<CachedURLResponse> URLCacheStore::find(const URLRequest& request) {
  if (!isKept(request.method)) return std::nullopt;
  ++lookUps_;
  const CacheKey key = cacheKey(request.url);
  VaryMatcher matcher(request.headers);
  const auto end = inAWhile();
  const auto disk = this->disk(end);
  if (memory_.mayHold(key)) {
    if (disk) memory_.enterGeneration(disk->generation(end));
    if (const auto entry = memory_.find(key, matcher)) {
      if (disk) disk->noteUse(entry->id);
      ++memoryHits_;
      return entry->response;
    }
  }
  if (!disk) return std::nullopt;
  const MemoryTier::Ticket ticket = memory_.ticket(key);
  auto entry = disk->find(key, matcher, request.url, end);
  if (!entry) return std::nullopt;
  ++diskHits_;
  CachedURLResponse response = entry->response;
  memory_.promote(key, matcher, std::move(*entry), ticket);
  return response;
}

std::optional<URLCache::Known> URLCacheStore::findAtOnce(const URLRequest& request) {
  if (!isKept(request.method)) return URLCache::Known();
  std::shared_ptr<DiskTier> disk;
  if (hasDisk()) {
    if (!mutex_.try_lock()) return std::nullopt;
    disk = disk_;
    mutex_.unlock();
    const auto generation = disk ? disk->generationAtOnce() : std::nullopt;
    if (!generation) return std::nullopt;
    memory_.enterGeneration(*generation);
  }
  const CacheKey key = cacheKey(request.url);
  VaryMatcher matcher(request.headers);
  if (const auto entry = memory_.find(key, matcher)) {
    if (disk) disk->noteUse(entry->id);
    ++lookUps_;
    ++memoryHits_;
    return URLCache::Known{entry->response};
  }
  if (disk && disk->mayHold(key)) return std::nullopt;
  ++lookUps_;
  return URLCache::Known();
}

// What the tiers need of a change; the tiers point into it.
struct URLCacheStore::Prepared {
  explicit Prepared(const URLCache::Change& change)
      : key(cacheKey(change.request.url)), matcher(change.request.headers) {}

  CacheKey key;
  VaryMatcher matcher;
  std::optional<CacheEntry> entry;
};

DiskTier::Change URLCacheStore::changeFor(Prepared& prepared, URLCache::Change& change) {
  using Kind = DiskTier::Change::Kind;
  if (!change.response) {
    return {Kind::remove, prepared.key, nullptr, nullptr,
            [this, &prepared](std::int64_t) { memory_.remove(prepared.key); }};
  }
  auto vary = varyKey(change.response->response.headers, change.request.headers);
  // What cannot be kept still makes the copy outdated that it would have replaced.
  if (!vary) {
    return {Kind::removeMatching, prepared.key, &prepared.matcher, nullptr,
            [this, &prepared](std::int64_t) {
              memory_.removeMatching(prepared.key, prepared.matcher);
            }};
  }
  CacheEntry& entry =
      prepared.entry.emplace(CacheEntry{std::move(*vary), *std::move(change.response), 0, 0});
  entry.size = static_cast<std::int64_t>(encodedHeadSize(prepared.key, entry.vary, entry.response) +
                                         entry.response.data.size());
  const bool fitsDisk = entry.size <= diskCapacity_ / 20;
  return {fitsDisk ? Kind::store : Kind::removeMatching, prepared.key, &prepared.matcher, &entry,
          [this, &prepared](std::int64_t id) {
            prepared.entry->id = id;
            memory_.store(prepared.key, prepared.matcher, *std::move(prepared.entry));
          }};
}

void URLCacheStore::apply(std::vector<URLCache::Change> changes) {
  const auto end = inAWhile();
  const auto disk = this->disk(end);
  std::deque<Prepared> prepared;
  std::vector<DiskTier::Change> made;
  std::int64_t size = 0;
  for (URLCache::Change& change : changes) {
    if (change.response && !isKept(change.request.method)) continue;
    made.push_back(changeFor(prepared.emplace_back(change), change));
    if (!disk) {
      made.back().then(0);
      continue;
    }
    // No more at once than one response may have: the file's log has to hold it.
    if (made.back().entry != nullptr) size += made.back().entry->size;
    if (size < diskCapacity_ / 20) continue;
    disk->change(std::exchange(made, {}), diskCapacity_, &memory_, end);
    size = 0;
  }
  if (disk && !made.empty()) disk->change(made, diskCapacity_, &memory_, end);
}

void URLCacheStore::settle() {
  const auto disk = this->disk(inAWhile());
  if (!disk) return;
  disk->shortenLog();
  disk->learnRows();
}

void URLCacheStore::shortenLog() {
  if (const auto disk = this->disk(inAWhile())) disk->shortenLog();
}

void URLCacheStore::removeAll() {
  const auto end = inAWhile();
  const DiskTier::Then then = [&](std::int64_t) { memory_.clear(); };
  const auto disk = this->disk(end);
  disk ? disk->removeAll(&memory_, then, end) : then(0);
}

void URLCacheStore::setDiskCapacity(std::int64_t bytes) {
  const auto end = inAWhile();
  const auto before = disk(end);
  diskCapacity_ = std::max<std::int64_t>(bytes, 0);
  if (before) before->trim(diskCapacity_, end);
}

std::int64_t URLCacheStore::diskUsage() {
  const auto end = inAWhile();
  const auto disk = this->disk(end);
  return disk ? disk->usage(end) : 0;
}

std::filesystem::path URLCacheStore::diskFile() {
  const auto disk = this->disk(inAWhile());
  return disk ? disk->file() : std::filesystem::path();
}

std::vector<URLCache::Entry> URLCacheStore::entries() {
  std::vector<URLCache::Entry> all;
  const auto end = inAWhile();
  const auto disk = this->disk(end);
  auto stored = disk ? disk->entries(end) : std::vector<CacheEntry>();
  if (disk) memory_.enterGeneration(disk->generation(end));
  std::unordered_set<std::int64_t> ids;
  for (const CacheEntry& entry : stored) ids.insert(entry.id);
  // What is only in memory was stored lately.
  for (const auto& entry : memory_.entries()) {
    if (ids.contains(entry->id)) continue;
    all.push_back({entry->response, entry->size, false});
    all.back().response.data = Data();
  }
  for (CacheEntry& entry : stored) all.push_back({std::move(entry.response), entry.size, true});
  return all;
}

std::shared_ptr<DiskTier> URLCacheStore::disk(DiskTier::Deadline deadline) {
  const std::int64_t capacity = diskCapacity_;
  if (!hasDisk()) return nullptr;
  std::shared_ptr<DiskTier> opened;
  {
    const MutexLock lock(mutex_);
    if (disk_) return disk_;
    const std::filesystem::path path = folder();
    if (path.empty()) return nullptr;
    disk_ = DiskTier::shared(path);
    disk_->attach(&memory_);
    opened = disk_;
  }
  // The capacity may have been larger when the file was written.
  if (opened->usage(deadline) > capacity) opened->trim(capacity, deadline);
  return opened;
}

std::filesystem::path URLCacheStore::folder() const {
  if (diskPath_.is_absolute()) return diskPath_;
  const auto caches = ApplicationDirectories::cachesDirectory();
  return caches.empty() ? caches : caches / diskPath_;
}

}  // namespace paperloom::internal
