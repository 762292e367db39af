#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <tl/expected.hpp>

struct sqlite3;
struct sqlite3_stmt;

namespace paperloom::internal {

// SQLite's extended result code; carries no text, so that no path or value can leak into a log.
struct SQLiteError {
  int code = 0;

  static SQLiteError corrupt();
  static SQLiteError busy();

  // The bytes of the file are proven to be wrong.
  bool isCorruption() const;
  // The same for a file that is being opened: then a schema that makes no sense, or lacks what a
  // statement names, is a proof as well. Later it may have been replaced by another process.
  bool isDamage() const;
  // The tables' own rules are broken.
  bool isConstraint() const;
  // Somebody else holds the lock.
  bool isBusy() const;
  // It could not be written this time: a full disk, an error of the device, no memory. What is in
  // the file can still be read.
  bool isRefusal() const;
  // The file at the path is nothing to open: a link, a device, somebody else's.
  bool isForeign() const;
};

template <class T>
using SQLiteResult = tl::expected<T, SQLiteError>;
using SQLiteStatus = SQLiteResult<void>;

// Bytes to be bound, or read from a row. They are not copied: bound ones must live until the
// statement is reset, read ones live until its next step or reset.
struct SQLiteText {
  std::string_view bytes;
};
struct SQLiteBlob {
  std::string_view bytes;
};

// One prepared statement. Parameters count from 1, columns from 0. Belongs to one thread at a time.
class SQLiteStatement {
 public:
  SQLiteStatement() = default;

  explicit operator bool() const { return statement_ != nullptr; }

  SQLiteStatus bind(int index, std::int64_t value);
  SQLiteStatus bind(int index, double value);
  SQLiteStatus bind(int index, SQLiteText text);
  SQLiteStatus bind(int index, SQLiteBlob blob);

  // True: a row is there to be read. False: the statement has ended. The statement needs a
  // reset() before its next use either way.
  SQLiteResult<bool> step();
  // Steps once, resets, and tells only whether it worked: for statements without rows.
  SQLiteStatus run();
  void reset();

  std::int64_t integer(int column) const;
  // Nothing unless the column holds a number; texts that look like one are none.
  std::optional<double> real(int column) const;
  // Nothing unless the column holds a text. Valid until the next step() or reset().
  std::optional<std::string_view> text(int column) const;
  // Empty unless the column holds a blob. Valid until the next step() or reset().
  std::string_view blob(int column) const;

 private:
  friend class SQLiteDatabase;
  struct Finalizer {
    void operator()(sqlite3_stmt* statement) const;
  };
  std::unique_ptr<sqlite3_stmt, Finalizer> statement_;
};

// One connection to one file, opened for data that nobody vouches for: what a schema in the file
// could make SQLite do (triggers, views, functions) is switched off. Belongs to one thread at a
// time. Statements must go before their database.
class SQLiteDatabase {
 public:
  SQLiteDatabase() = default;

  using Deadline = std::chrono::steady_clock::time_point;

  // Opens the file, which is created for its owner alone (0600; existing files are restricted). It
  // and those that SQLite keeps beside it must be regular files of this user. Statements wait for
  // locks until the deadline.
  static SQLiteResult<SQLiteDatabase> open(const std::filesystem::path& file, Deadline deadline);
  // Opens what is there for reading alone, also where nothing can be written.
  static SQLiteResult<SQLiteDatabase> openToRead(const std::filesystem::path& file,
                                                 Deadline deadline);

  // From now on statements wait for a lock until then, and no longer. To be called on the thread
  // that runs them.
  void waitForLocksUntil(Deadline deadline);

  explicit operator bool() const { return database_ != nullptr; }
  sqlite3* handle() const { return database_.get(); }

  // Whether the file, once read from, does not take changes: by its mode, or because its header
  // says so.
  bool isReadOnly() const;
  // Of the file; absolute.
  const char* path() const;
  // Rows that the last statement has changed, and all statements so far.
  std::int64_t changes() const;
  std::int64_t totalChanges() const;

  // Runs one or more statements and ignores their rows.
  SQLiteStatus execute(const char* sql);
  SQLiteResult<SQLiteStatement> prepare(std::string_view sql);
  // The first column of the first row.
  SQLiteResult<std::int64_t> integer(std::string_view sql);

  // Of a file with a write-ahead log: its pages when this connection last committed.
  int logPages() const;
  // Brings the log's pages into the file, and gives the number of those that could not be brought,
  // since others read an older state. Outside a transaction.
  enum class Checkpoint {
    passive,   // without waiting
    restart,   // waits until the next change can start the log anew
    truncate,  // waits for that, and gives its room back
  };
  SQLiteResult<int> checkpoint(Checkpoint mode);

  // Makes the file an empty database whatever it held, in place and under SQLite's own locks, so
  // that other processes that have it open are safe.
  SQLiteStatus resetFile();
  // Writes the file's bytes as they are to `copy`. (Opening the file a second time would drop the
  // locks that this process holds on it.)
  bool copyFile(const std::filesystem::path& copy);

 private:
  // What SQLite keeps the address of until it has closed.
  struct Kept {
    Deadline deadline;
    int logPages = 0;
  };
  struct Closer {
    void operator()(sqlite3* database) const;
    std::unique_ptr<Kept> kept;
  };
  static SQLiteResult<SQLiteDatabase> openWith(const std::string& name, int flags,
                                               Deadline deadline);

  std::unique_ptr<sqlite3, Closer> database_;
};

}  // namespace paperloom::internal
