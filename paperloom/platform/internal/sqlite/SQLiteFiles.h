#pragma once

#include <chrono>

namespace paperloom::internal {

// The files below SQLite, as a name for sqlite3_open_v2(): the system's, with three differences.
//
// - A sleep ends when the deadline of its thread comes.
// - What a transaction adds to a write-ahead log goes there in few large writes instead of two for
//   each page. All of it is there once the transaction's last page has been written, and before
//   anything is read from the log or synced: a commit that SQLite reports, and that others can see,
//   is in the system's hands as it would be without this.
// - The first header of a log that holds nothing yet is not synced by itself. SQLite does that so
//   that after a power cut the pages of an earlier round are not taken for new ones; here there was
//   no earlier round.
const char* sqliteFiles();

// For the sleeps of this thread.
void sleepNoLongerThan(std::chrono::steady_clock::time_point deadline);

}  // namespace paperloom::internal
