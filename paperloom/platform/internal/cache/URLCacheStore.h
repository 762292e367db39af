#pragma once

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <vector>

#include "paperloom/platform/Mutex.h"
#include "paperloom/platform/URLCache.h"
#include "paperloom/platform/internal/cache/DiskTier.h"
#include "paperloom/platform/internal/cache/MemoryTier.h"

namespace paperloom::internal {

// One cache: its own memory above the disk tier that it may share with others. Safe from any
// thread.
class URLCacheStore {
 public:
  URLCacheStore(std::int64_t memoryCapacity, std::int64_t diskCapacity,
                std::filesystem::path diskPath);
  ~URLCacheStore();
  URLCacheStore(const URLCacheStore&) = delete;
  URLCacheStore& operator=(const URLCacheStore&) = delete;

  std::optional<CachedURLResponse> find(const URLRequest& request);
  std::optional<URLCache::Known> findAtOnce(const URLRequest& request);
  void apply(std::vector<URLCache::Change> changes);
  // Both of URLCache::settle()'s deeds, or the first.
  void settle();
  void shortenLog();
  void removeAll();

  MemoryTier& memory() { return memory_; }
  std::int64_t diskCapacity() const { return diskCapacity_; }
  void setDiskCapacity(std::int64_t bytes);
  std::int64_t diskUsage();
  std::filesystem::path diskFile();
  std::vector<URLCache::Entry> entries();
  URLCache::Statistics statistics() const { return {lookUps_, memoryHits_, diskHits_}; }

 private:
  struct Prepared;
  DiskTier::Change changeFor(Prepared& prepared, URLCache::Change& change);
  bool hasDisk() const { return diskCapacity_ != 0 && !diskPath_.empty(); }
  std::shared_ptr<DiskTier> disk(DiskTier::Deadline deadline);
  std::filesystem::path folder() const;

  MemoryTier memory_;
  std::atomic<std::int64_t> diskCapacity_;
  const std::filesystem::path diskPath_;
  std::atomic<std::int64_t> lookUps_ = 0;
  std::atomic<std::int64_t> memoryHits_ = 0;
  std::atomic<std::int64_t> diskHits_ = 0;
  Mutex mutex_;
  std::shared_ptr<DiskTier> disk_ PAPERLOOM_GUARDED_BY(mutex_);  // from its first use on
};

}  // namespace paperloom::internal
