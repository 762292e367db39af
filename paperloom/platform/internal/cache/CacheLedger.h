#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "paperloom/platform/Mutex.h"
#include "paperloom/platform/internal/cache/CacheEntryFormat.h"
#include "paperloom/platform/internal/cache/CacheReader.h"
#include "paperloom/platform/internal/cache/RowFilter.h"
#include "paperloom/platform/internal/sqlite/SQLiteFiles.h"

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

  // Whether the file's log is as it was when the generation was last told, but for what this
  // process wrote: then what it knows of the file is all there is to know.
  bool isCurrent(const SQLiteLogMark& mark) const;
  void noteCurrent(const SQLiteLogMark& mark);
  // After a commit of this process's, with the rows that it stored.
  void noteWrite(const SQLiteWriteMarks& marks, const std::vector<std::int64_t>& stored);

  // Which URLs have no row, so that many a miss needs no look at the file. It is known once it has
  // been learnt, until another process changes something or many rows have been stored. True where
  // it is not known.
  bool mayHold(const CacheKey& key) const;
  bool knowsRows() const;
  // The rows that are then read, in a transaction that begins after this, are handed to learnRows()
  // with the number that this gives.
  std::uint64_t beginToLearnRows();
  void learnRows(std::uint64_t begun, std::vector<std::int64_t> ids);
  void forgetRows();

 private:
  std::uint64_t nextGeneration() PAPERLOOM_REQUIRES(mutex_);

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
  SQLiteLogMark current_ PAPERLOOM_GUARDED_BY(mutex_);
  std::optional<RowFilter> rows_ PAPERLOOM_GUARDED_BY(mutex_);
  // While rows are being learnt: the number of the attempt, and what has been stored since it
  // began.
  std::uint64_t learning_ PAPERLOOM_GUARDED_BY(mutex_) = 0;
  std::uint64_t attempts_ PAPERLOOM_GUARDED_BY(mutex_) = 0;
  std::vector<std::int64_t> storedMeanwhile_ PAPERLOOM_GUARDED_BY(mutex_);
};

}  // namespace paperloom::internal
