#include "paperloom/platform/internal/cache/URLCacheStore.h"

#include <algorithm>
#include <unordered_set>
#include <utility>

#include "paperloom/platform/ApplicationDirectories.h"

namespace paperloom::internal {
namespace {

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
  const auto disk = this->disk();
  if (memory_.mayHold(key)) {
    if (disk) memory_.enterGeneration(disk->generation());
    if (const auto entry = memory_.find(key, matcher)) {
      if (disk) disk->noteUse(entry->id);
      ++memoryHits_;
      return entry->response;
    }
  }
  if (!disk) return std::nullopt;
  const MemoryTier::Ticket ticket = memory_.ticket(key);
  auto entry = disk->find(key, matcher, request.url);
  if (!entry) return std::nullopt;
  ++diskHits_;
  CachedURLResponse response = entry->response;
  memory_.promote(key, matcher, std::move(*entry), ticket);
  return response;
}

void URLCacheStore::store(const CachedURLResponse& response, const URLRequest& request) {
  if (!isKept(request.method)) return;
  const CacheKey key = cacheKey(request.url);
  VaryMatcher matcher(request.headers);
  auto vary = varyKey(response.response.headers, request.headers);
  const auto disk = this->disk();
  // What cannot be kept still makes the copy outdated that it would have replaced.
  const auto removeFromMemory = [&](std::int64_t) { memory_.removeMatching(key, matcher); };
  if (!vary) {
    if (disk) return disk->removeMatching(key, matcher, &memory_, removeFromMemory);
    return removeFromMemory(0);
  }
  CacheEntry entry{std::move(*vary), response, 0, 0};
  entry.size =
      static_cast<std::int64_t>(encodedHeadSize(key, entry.vary, response) + response.data.size());
  const std::int64_t size = entry.size;
  const auto storeInMemory = [&](std::int64_t id) {
    CacheEntry copy = entry;
    copy.id = id;
    memory_.store(key, matcher, std::move(copy));
  };
  const std::int64_t capacity = diskCapacity_;
  if (!disk) {
    storeInMemory(0);
  } else if (size > capacity / 20) {
    disk->removeMatching(key, matcher, &memory_, storeInMemory);
  } else {
    disk->store(key, matcher, entry, capacity, &memory_, storeInMemory);
  }
}

void URLCacheStore::remove(const URLRequest& request) {
  const CacheKey key = cacheKey(request.url);
  if (const auto disk = this->disk()) {
    disk->remove(key, &memory_, [&](std::int64_t) { memory_.remove(key); });
  } else {
    memory_.remove(key);
  }
}

void URLCacheStore::removeAll() {
  if (const auto disk = this->disk()) {
    disk->removeAll(&memory_, [&](std::int64_t) { memory_.clear(); });
  } else {
    memory_.clear();
  }
}

void URLCacheStore::setDiskCapacity(std::int64_t bytes) {
  const auto before = disk();
  diskCapacity_ = std::max<std::int64_t>(bytes, 0);
  if (before) before->trim(diskCapacity_);
}

std::int64_t URLCacheStore::diskUsage() {
  const auto disk = this->disk();
  return disk ? disk->usage() : 0;
}

std::filesystem::path URLCacheStore::diskFile() {
  const auto disk = this->disk();
  return disk ? disk->file() : std::filesystem::path();
}

std::vector<URLCache::Entry> URLCacheStore::entries() {
  std::vector<URLCache::Entry> all;
  const auto disk = this->disk();
  auto stored = disk ? disk->entries() : std::vector<CacheEntry>();
  if (disk) memory_.enterGeneration(disk->generation());
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

std::shared_ptr<DiskTier> URLCacheStore::disk() {
  const std::int64_t capacity = diskCapacity_;
  if (capacity == 0 || diskPath_.empty()) return nullptr;
  std::shared_ptr<DiskTier> opened;
  {
    const std::lock_guard lock(mutex_);
    if (disk_) return disk_;
    const std::filesystem::path path = folder();
    if (path.empty()) return nullptr;
    disk_ = DiskTier::shared(path);
    disk_->attach(&memory_);
    opened = disk_;
  }
  // The capacity may have been larger when the file was written.
  if (opened->usage() > capacity) opened->trim(capacity);
  return opened;
}

std::filesystem::path URLCacheStore::folder() const {
  if (diskPath_.is_absolute()) return diskPath_;
  const auto caches = ApplicationDirectories::cachesDirectory();
  return caches.empty() ? caches : caches / diskPath_;
}

}  // namespace paperloom::internal
