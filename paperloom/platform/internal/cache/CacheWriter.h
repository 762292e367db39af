#pragma once

#include <array>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "paperloom/platform/internal/cache/CacheFile.h"
#include "paperloom/platform/internal/cache/CacheReader.h"

namespace paperloom::internal {

// The one connection that changes the cache's file, and the statements for it. Everything between
// begin() and commit() happens wholly or not at all, a crash included. Belongs to one thread at a
// time.
class CacheWriter {
 public:
  // `name` stands for this writer in the file's stamp.
  static SQLiteResult<CacheWriter> open(const std::filesystem::path& file,
                                        SQLiteDatabase::Deadline deadline, CacheContents contents,
                                        std::int64_t name);

  void waitForLocksUntil(SQLiteDatabase::Deadline deadline) {
    database_.waitForLocksUntil(deadline);
  }

  // The uses are counted by a clock that every store and every use advances. Tells when a row was
  // last used, where the file may not know it yet; 0 for rows it knows nothing of.
  using LastUse = std::function<std::int64_t(std::int64_t id)>;

  // Takes the file's write lock. `clock` is the least that the clock shows from now on; `lastUse`
  // is asked when entries are evicted.
  SQLiteStatus begin(std::int64_t clock, LastUse lastUse);
  std::int64_t clock() const { return state_.clock; }
  // Writes nothing when nothing has changed.
  SQLiteStatus commit();
  void rollback();
  // As it was when the transaction began.
  CacheStamp stampBefore() const { return before_; }

  // Replaces the variants that fit the request, then evicts down to `capacity`. Gives the row's id.
  SQLiteResult<std::int64_t> store(const CacheKey& key, VaryMatcher& request,
                                   const CacheEntry& entry, std::int64_t capacity);
  SQLiteStatus removeMatching(const CacheKey& key, VaryMatcher& request);
  SQLiteStatus remove(const CacheKey& key);
  SQLiteStatus removeDamaged(const std::vector<CacheReader::Damaged>& rows);
  // Writes that the entry was used at `clock`, unless the file knows of a later use.
  SQLiteStatus touch(std::int64_t id, std::int64_t clock);
  SQLiteStatus evict(std::int64_t capacity);
  // Removes every entry and asks for scrub().
  SQLiteStatus removeAll();

  // Whether the log has grown to a small multiple of its limit.
  bool logIsLong() const;
  // Outside a transaction: brings what it can of the log into the file, and says whether the log
  // may grow. It may not while somebody who reads an old state of the file keeps too much of it;
  // those who read for a moment are waited for when it has grown to a larger multiple.
  bool shortenLog(SQLiteDatabase::Deadline deadline);
  // Outside a transaction: gives the free pages back, for which others may go on reading.
  SQLiteStatus vacuum();
  // Outside a transaction, with nobody reading: empties the log. After both, nothing of what was
  // removed is left; until then needsScrub() says so, to the next process as well.
  SQLiteStatus emptyLog();
  bool needsScrub() const { return state_.scrub != nothingToScrub; }
  bool needsVacuum() const { return state_.scrub == wholeFile; }
  // Whether more of the file is unused than is worth keeping.
  SQLiteResult<bool> isSparse();

 private:
  enum Sql {
    beginTransaction,
    commitTransaction,
    rollbackTransaction,
    selectState,
    writeState,
    selectVariants,
    insertAnswer,
    insertUse,
    selectSum,
    deleteAnswer,
    deleteUse,
    touchUse,
    selectOldest,
    selectOldestOf,
    pageCount,
    freePageCount,
    sqlCount,
  };
  // The values of state.scrub.
  static constexpr std::int64_t nothingToScrub = 0;
  static constexpr std::int64_t wholeFile = 1;
  static constexpr std::int64_t logOnly = 2;
  struct State {
    std::int64_t bytes = 0;
    std::int64_t clock = 0;
    std::int64_t changes = 0;
    std::int64_t scrub = 0;
  };

  SQLiteStatus readState();
  SQLiteStatus recount();
  SQLiteResult<std::int64_t> value(Sql sql);
  SQLiteResult<std::int64_t> freeId(const CacheKey& key);
  SQLiteResult<std::vector<std::int64_t>> matching(const CacheKey& key, VaryMatcher* request);
  SQLiteResult<bool> removeRow(std::int64_t id);
  SQLiteStatus checkStructure();
  SQLiteResult<bool> isOver(std::int64_t capacity);
  SQLiteStatus writeScrub(std::int64_t scrub);
  SQLiteStatus limitLog(std::int64_t capacity);

  SQLiteDatabase database_;
  std::array<SQLiteStatement, sqlCount> statements_;
  std::int64_t writer_ = 0;
  std::int64_t logCapacity_ = -1;         // the capacity that the log's limit was set for
  int logLimit_ = 65536 / cachePageSize;  // in pages
  CacheStamp before_;
  State stateBefore_;
  std::int64_t totalBefore_ = 0;
  State state_;
  bool changed_ = false;
  bool structureChecked_ = false;
  LastUse lastUse_;
};

}  // namespace paperloom::internal
