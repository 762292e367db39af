#pragma once

#include <array>
#include <chrono>
#include <cstdint>

struct sqlite3;

namespace paperloom::internal {

// The files below SQLite, as a name for sqlite3_open_v2(): the system's, with four differences.
//
// - A sleep ends when the deadline of its thread comes.
// - What a transaction adds to a write-ahead log goes there in few large writes instead of two for
//   each page. All of it is there once the transaction's last page has been written, and before
//   anything is read from the log or synced: a commit that SQLite reports, and that others can see,
//   is in the system's hands as it would be without this.
// - Pages of the database that are read one after the other, as those of a large value mostly are,
// are
//   read several at once. What was read ahead is used only until the connection takes or gives back
//   a lock: while it has one, nobody changes what it may read.
// - The first header of a log that holds nothing yet is not synced by itself. SQLite does that so
//   that after a power cut the pages of an earlier round are not taken for new ones; here there was
//   no earlier round.
const char* sqliteFiles();

// What the index of a write-ahead log, which all connections share in memory, says of the log:
// every commit changes it, whoever makes it (the header of section 2.2 in SQLite's "WAL-mode File
// Format"). One that is not known is equal to none.
class SQLiteLogMark {
 public:
  SQLiteLogMark() = default;
  explicit SQLiteLogMark(const volatile std::uint32_t* index);

  friend bool operator==(const SQLiteLogMark& a, const SQLiteLogMark& b) {
    return a.isKnown_ && b.isKnown_ && a.words_ == b.words_;
  }

 private:
  bool isKnown_ = false;
  std::array<std::uint32_t, 12> words_{};
};

// As it is now; touches no disk. For a connection over sqliteFiles(), on the thread that uses it.
SQLiteLogMark logMark(sqlite3* database);
// As it was when the connection last got the lock for writing, and when it gave it back.
struct SQLiteWriteMarks {
  SQLiteLogMark before;
  SQLiteLogMark after;
};
SQLiteWriteMarks lastWriteMarks(sqlite3* database);

// For the sleeps of this thread.
void sleepNoLongerThan(std::chrono::steady_clock::time_point deadline);

}  // namespace paperloom::internal
