#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "paperloom/platform/internal/cache/CacheFile.h"
#include "paperloom/platform/internal/cache/CacheReader.h"

namespace paperloom::internal {

// The one connection that changes the cache's file. Belongs to one thread at a time.
//
// - Everything between begin() and commit() happens wholly or not at all, a crash included. After
//   an error in between only rollback() makes sense.
// - Each row of answers has its row of uses; state.bytes is the sum of their sizes. One without the
//   other, and a sum that no eviction brings down, are damage and are reported as such.
// - state.writer and state.changes change with every transaction that changes what is kept, so that
//   others notice; a transaction that changes nothing writes nothing.
// - A transaction writes to the log alone. What it wrote is in the system's hands when commit()
//   returns, on the disk with the next checkpoint; whoever brings the log into the file, this
//   connection or another, syncs the log first and the file after.
// - After removeAll() the file's unused pages and its log may hold what was removed, and
//   needsScrub() says so until vacuum() and emptyLog() have worked, in the next process as well.
class CacheWriter {
 public:
  // Advances the clock, so that a reader can see whether it sees what this writes. `name` stands
  // for this writer in the file's stamp.
  static SQLiteResult<CacheWriter> open(const std::filesystem::path& file,
                                        SQLiteDatabase::Deadline deadline, CacheContents contents,
                                        std::int64_t name);
  ~CacheWriter();
  CacheWriter(CacheWriter&&) noexcept;
  CacheWriter& operator=(CacheWriter&&) noexcept;

  void waitForLocksUntil(SQLiteDatabase::Deadline deadline);

  // The uses are counted by a clock that every store and every use advances. Tells when a row was
  // last used, where the file may not know it yet; 0 for rows it knows nothing of.
  using LastUse = std::function<std::int64_t(std::int64_t id)>;

  // Takes the file's write lock. `clock` is the least that the clock shows from now on; `lastUse`
  // is asked when entries are evicted.
  SQLiteStatus begin(std::int64_t clock, LastUse lastUse);
  std::int64_t clock() const { return state_.clock; }
  SQLiteStatus commit();
  void rollback();
  // As it was when the transaction began.
  CacheStamp stampBefore() const { return before_; }
  // The rows that it has stored so far.
  const std::vector<std::int64_t>& stored() const { return stored_; }
  // Of the log, around the last transaction.
  SQLiteWriteMarks writeMarks() const;
  // The size of all entries in bytes.
  std::int64_t usage() const { return state_.bytes; }

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

  // Whether the log is longer than its limit, and ought to be brought into the file in a moment in
  // which nobody waits.
  bool logIsOverLimit() const;
  // Whether it has grown to a small multiple of its limit, and has to be.
  bool logIsLong() const;
  // Outside a transaction: brings what it can of the log into the file, and says whether the log
  // may grow. It may not while somebody who reads an old state of the file keeps too much of it;
  // those who read for a moment are waited for when it has grown to a larger multiple.
  bool shortenLog(SQLiteDatabase::Deadline deadline);
  // Outside a transaction: gives the free pages back, for which others may go on reading.
  SQLiteStatus vacuum();
  // Outside a transaction, with nobody reading: empties the log.
  SQLiteStatus emptyLog();
  bool needsScrub() const;
  bool needsVacuum() const;
  // Whether more of the file is unused than is worth keeping.
  SQLiteResult<bool> isSparse();

 private:
  struct Sql;
  struct State {
    std::int64_t bytes = 0;
    std::int64_t clock = 0;
    std::int64_t changes = 0;
    std::int64_t scrub = 0;
  };

  // The ids of a URL's rows.
  struct Variants {
    std::vector<std::int64_t> fitting;  // the request
    std::vector<std::int64_t> others;
  };

  CacheWriter(SQLiteDatabase database, std::int64_t name);
  SQLiteStatus countAnew();
  SQLiteStatus readState();
  SQLiteStatus writeState();
  SQLiteStatus recount();
  SQLiteResult<std::int64_t> freeId(const CacheKey& key, const Variants& variants);
  SQLiteResult<Variants> variantsOf(const CacheKey& key, VaryMatcher* request);
  SQLiteStatus removeEach(const std::vector<std::int64_t>& ids);
  SQLiteResult<bool> removeRow(std::int64_t id);
  SQLiteStatus checkStructure();
  SQLiteResult<bool> isOver(std::int64_t capacity);
  SQLiteStatus writeScrub(std::int64_t scrub);
  SQLiteStatus limitLog(std::int64_t capacity);

  std::unique_ptr<Sql> sql_;
  std::int64_t writer_ = 0;
  std::int64_t pageSize_ = 0;      // of the file
  std::int64_t logCapacity_ = -1;  // the capacity that the log's limit was set for
  std::int64_t logLimit_ = 0;      // in pages
  CacheStamp before_;
  State stateBefore_;
  std::int64_t totalBefore_ = 0;
  State state_;
  bool changed_ = false;
  std::vector<std::int64_t> stored_;
  bool structureChecked_ = false;
  LastUse lastUse_;
};

}  // namespace paperloom::internal
