#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "paperloom/platform/Mutex.h"
#include "paperloom/platform/internal/cache/CacheEntryFormat.h"
#include "paperloom/platform/internal/cache/CacheReader.h"

namespace paperloom::internal {

class MemoryTier;

// What this process knows about a cache's file and the file does not say, or not yet: which
// entries were used, which are outdated, whether others have changed something, and which memories
// lie above it. Safe from any thread; its one lock is held for moments and never across disk work.
class CacheLedger {
 public:
  // A memory above the file, from then on told about what is stored and removed through others.
  void attach(MemoryTier* memory);
  void detach(MemoryTier* memory);
  void tell(const MemoryTier* allBut, const std::function<void(MemoryTier&)>& tell);

  // Uses are counted by a clock that every store and every use advances.
  void noteUse(std::int64_t id);
  // 0 for a row of which no use was noted.
  std::int64_t lastUse(std::int64_t id) const;
  void forgetUses();
  // The latest uses: clock and row, latest first.
  std::vector<std::pair<std::int64_t, std::int64_t>> usesToWrite() const;
  std::int64_t clock() const;
  void advanceClock(std::int64_t clock);

  // What could not be removed from the file yet, and must not be served until it is.
  void noteOutdated(const CacheKey& key);
  void noteAllOutdated();
  bool isOutdated(const std::string& url) const;
  // What a transaction is to remove before anything else. Not more than it can do in a moment, but
  // `first` is part of it if it is outdated.
  struct Outdated {
    std::vector<std::pair<std::string, std::uint64_t>> urls;
    int all = 0;
  };
  Outdated outdated(const CacheKey* first) const;
  void noteRemoved(const Outdated& removed);

  bool hasSomethingToWrite() const;

  // Another number than before when another process may have changed something meanwhile.
  std::uint64_t generation() const;
  std::uint64_t startGeneration();
  // What the file says about its last writer: another one than this process, `own`, and than the
  // one known already, means that others have changed something.
  void noteStamp(const CacheStamp& stamp, std::int64_t own);
  // When the file is opened for the first time.
  void knowStamp(const CacheStamp& stamp);

 private:
  mutable Mutex mutex_;
  std::vector<MemoryTier*> memories_ PAPERLOOM_GUARDED_BY(mutex_);
  // Row id to the clock of its last use.
  std::unordered_map<std::int64_t, std::int64_t> uses_ PAPERLOOM_GUARDED_BY(mutex_);
  std::int64_t clock_ PAPERLOOM_GUARDED_BY(mutex_) = 0;
  // By URL; with a number, because one may become outdated again while it is being removed.
  std::unordered_map<std::string, std::uint64_t> outdated_ PAPERLOOM_GUARDED_BY(mutex_);
  std::uint64_t notes_ PAPERLOOM_GUARDED_BY(mutex_) = 0;
  int allOutdated_ PAPERLOOM_GUARDED_BY(mutex_) = 0;  // how often everything was to be removed
  std::uint64_t generation_ PAPERLOOM_GUARDED_BY(mutex_) = 0;
  CacheStamp foreign_ PAPERLOOM_GUARDED_BY(mutex_);
};

}  // namespace paperloom::internal
