#include "paperloom/platform/internal/sqlite/SQLite.h"

#include <fcntl.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <fstream>
#include <thread>

#include "paperloom/platform/internal/sqlite/SQLiteFiles.h"

namespace paperloom::internal {
namespace {

SQLiteStatus status(int code) {
  if (code == SQLITE_OK || code == SQLITE_DONE || code == SQLITE_ROW) return {};
  return tl::unexpected(SQLiteError{code});
}

// The file, and what SQLite keeps beside it.
constexpr std::array suffixes{"", "-wal", "-shm", "-journal"};

// Nobody but the owner may read the file, its log or its index: SQLite gives those two the mode of
// the file. A new file is made here, since SQLite would let others read it. An existing one must
// not be opened a second time: closing it would drop this process's locks on it.
void restrictToOwner(const std::filesystem::path& file) {
  const int descriptor = ::open(file.c_str(), O_CREAT | O_EXCL | O_RDWR | O_CLOEXEC, 0600);
  if (descriptor >= 0) {
    ::close(descriptor);
    return;
  }
  struct stat info {};
  if (::stat(file.c_str(), &info) != 0) return;
  const mode_t mode = info.st_mode & 0700;
  // Those beside it may be from when the file could only be read.
  for (const char* suffix : suffixes) {
    const std::string name = file.string() + suffix;
    if (::stat(name.c_str(), &info) == 0 && (info.st_mode & 0777) != mode) {
      ::chmod(name.c_str(), mode);
    }
  }
}

bool isOwnOrAbsent(const std::filesystem::path& file) {
  for (const char* suffix : suffixes) {
    struct stat info {};
    if (::lstat((file.string() + suffix).c_str(), &info) != 0) continue;
    if (!S_ISREG(info.st_mode) || info.st_uid != ::geteuid()) return false;
  }
  return true;
}

// The file as an URI that lets SQLite read it without a lock and an index, neither of which can be
// made where nothing can be written. Only for a file whose log is empty.
std::string immutableURI(const std::filesystem::path& file) {
  std::string uri = "file:";
  for (const char c : file.string()) {
    if (c == '?' || c == '#' || c == '%') {
      uri += c == '?' ? "%3f" : c == '#' ? "%23" : "%25";
    } else {
      uri += c;
    }
  }
  return uri + "?immutable=1";
}

int noteLogPages(void* pages, sqlite3*, const char*, int count) {
  *static_cast<int*>(pages) = count;
  return SQLITE_OK;
}

void distrustContents(sqlite3* database) {
  sqlite3_db_config(database, SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
  sqlite3_db_config(database, SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr);
  sqlite3_db_config(database, SQLITE_DBCONFIG_ENABLE_TRIGGER, 0, nullptr);
  sqlite3_db_config(database, SQLITE_DBCONFIG_ENABLE_VIEW, 0, nullptr);
}

// SQLite's busy handler: non-zero to try again.
int sleepUntil(void* deadline, int attempts) {
  using std::chrono::steady_clock;
  const auto end = *static_cast<const steady_clock::time_point*>(deadline);
  const steady_clock::duration pause = std::chrono::microseconds(attempts < 5 ? 200 : 2000);
  const auto left = end - steady_clock::now();
  if (left <= steady_clock::duration::zero()) return 0;
  std::this_thread::sleep_for(std::min(pause, left));
  return 1;
}

}  // namespace

SQLiteError SQLiteError::corrupt() { return {SQLITE_CORRUPT}; }

SQLiteError SQLiteError::busy() { return {SQLITE_BUSY}; }

bool SQLiteError::isCorruption() const {
  const int primary = code & 0xff;
  return primary == SQLITE_CORRUPT || primary == SQLITE_NOTADB || primary == SQLITE_FORMAT;
}

bool SQLiteError::isDamage() const { return isCorruption() || (code & 0xff) == SQLITE_ERROR; }

bool SQLiteError::isConstraint() const { return (code & 0xff) == SQLITE_CONSTRAINT; }

bool SQLiteError::isBusy() const {
  const int primary = code & 0xff;
  return primary == SQLITE_BUSY || primary == SQLITE_LOCKED || primary == SQLITE_PROTOCOL;
}

bool SQLiteError::isRefusal() const {
  const int primary = code & 0xff;
  return primary == SQLITE_IOERR || primary == SQLITE_NOMEM || primary == SQLITE_FULL ||
         primary == SQLITE_TOOBIG;
}

bool SQLiteError::isForeign() const { return code == SQLITE_AUTH; }

void SQLiteStatement::Finalizer::operator()(sqlite3_stmt* statement) const {
  sqlite3_finalize(statement);
}

SQLiteStatus SQLiteStatement::bind(int index, std::int64_t value) {
  return status(sqlite3_bind_int64(statement_.get(), index, value));
}

SQLiteStatus SQLiteStatement::bind(int index, double value) {
  return status(sqlite3_bind_double(statement_.get(), index, value));
}

// Without an address the value would be NULL.
SQLiteStatus SQLiteStatement::bind(int index, SQLiteText text) {
  const char* start = text.bytes.data() != nullptr ? text.bytes.data() : "";
  return status(sqlite3_bind_text64(statement_.get(), index, start, text.bytes.size(),
                                    SQLITE_STATIC, SQLITE_UTF8));
}

SQLiteStatus SQLiteStatement::bind(int index, SQLiteBlob blob) {
  const char* start = blob.bytes.data() != nullptr ? blob.bytes.data() : "";
  return status(
      sqlite3_bind_blob64(statement_.get(), index, start, blob.bytes.size(), SQLITE_STATIC));
}

SQLiteResult<bool> SQLiteStatement::step() {
  const int code = sqlite3_step(statement_.get());
  if (code == SQLITE_ROW) return true;
  if (code == SQLITE_DONE) return false;
  return tl::unexpected(SQLiteError{code});
}

SQLiteStatus SQLiteStatement::run() {
  const auto stepped = step();
  reset();
  if (!stepped) return tl::unexpected(stepped.error());
  return {};
}

void SQLiteStatement::reset() { sqlite3_reset(statement_.get()); }

std::int64_t SQLiteStatement::integer(int column) const {
  return sqlite3_column_int64(statement_.get(), column);
}

std::optional<double> SQLiteStatement::real(int column) const {
  const int type = sqlite3_column_type(statement_.get(), column);
  if (type != SQLITE_FLOAT && type != SQLITE_INTEGER) return std::nullopt;
  return sqlite3_column_double(statement_.get(), column);
}

std::optional<std::string_view> SQLiteStatement::text(int column) const {
  if (sqlite3_column_type(statement_.get(), column) != SQLITE_TEXT) return std::nullopt;
  const auto* start = reinterpret_cast<const char*>(sqlite3_column_text(statement_.get(), column));
  if (start == nullptr) return std::nullopt;
  const int size = sqlite3_column_bytes(statement_.get(), column);
  return std::string_view(start, static_cast<std::size_t>(size));
}

std::string_view SQLiteStatement::blob(int column) const {
  if (sqlite3_column_type(statement_.get(), column) != SQLITE_BLOB) return {};
  const auto* start = static_cast<const char*>(sqlite3_column_blob(statement_.get(), column));
  if (start == nullptr) return {};
  const int size = sqlite3_column_bytes(statement_.get(), column);
  return {start, static_cast<std::size_t>(size)};
}

void SQLiteDatabase::Closer::operator()(sqlite3* database) const { sqlite3_close_v2(database); }

SQLiteResult<SQLiteDatabase> SQLiteDatabase::open(const std::filesystem::path& file,
                                                  Deadline deadline) {
  if (!isOwnOrAbsent(file)) return tl::unexpected(SQLiteError{SQLITE_AUTH});
  restrictToOwner(file);
  return openWith(file, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, deadline);
}

SQLiteResult<SQLiteDatabase> SQLiteDatabase::openToRead(const std::filesystem::path& file,
                                                        Deadline deadline) {
  if (!isOwnOrAbsent(file)) return tl::unexpected(SQLiteError{SQLITE_AUTH});
  auto database = openWith(file, SQLITE_OPEN_READONLY, deadline);
  if (!database) return database;
  const auto read = database->integer("PRAGMA user_version");
  const int error = read ? SQLITE_OK : read.error().code & 0xff;
  // The log or its index cannot be made.
  if (error != SQLITE_CANTOPEN && error != SQLITE_READONLY) return database;
  struct stat log {};
  if (::stat((file.string() + "-wal").c_str(), &log) == 0 && log.st_size > 0) {
    return tl::unexpected(read.error());
  }
  return openWith(immutableURI(file), SQLITE_OPEN_READONLY | SQLITE_OPEN_URI, deadline);
}

SQLiteResult<SQLiteDatabase> SQLiteDatabase::openWith(const std::string& name, int flags,
                                                      Deadline deadline) {
  sqlite3* handle = nullptr;
  flags |= SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_PRIVATECACHE | SQLITE_OPEN_EXRESCODE;
  const int code = sqlite3_open_v2(name.c_str(), &handle, flags, sqliteFiles());
  SQLiteDatabase database;
  database.database_.reset(handle);
  if (code != SQLITE_OK) return tl::unexpected(SQLiteError{code});
  auto& kept = database.database_.get_deleter().kept;
  kept = std::make_unique<Kept>();
  sqlite3_busy_handler(handle, sleepUntil, &kept->deadline);
  sqlite3_wal_hook(handle, noteLogPages, &kept->logPages);
  database.waitForLocksUntil(deadline);
  distrustContents(handle);
  return database;
}

void SQLiteDatabase::waitForLocksUntil(Deadline deadline) {
  database_.get_deleter().kept->deadline = deadline;
  sleepNoLongerThan(deadline);
}

int SQLiteDatabase::logPages() const { return database_.get_deleter().kept->logPages; }

SQLiteResult<int> SQLiteDatabase::checkpoint(Checkpoint mode) {
  constexpr std::array modes{SQLITE_CHECKPOINT_PASSIVE, SQLITE_CHECKPOINT_RESTART,
                             SQLITE_CHECKPOINT_TRUNCATE};
  Kept& kept = *database_.get_deleter().kept;
  int pages = 0;
  int brought = 0;
  const int code = sqlite3_wal_checkpoint_v2(
      handle(), "main", modes[static_cast<std::size_t>(mode)], &pages, &brought);
  if (code != SQLITE_OK) return tl::unexpected(SQLiteError{code});
  if (mode != Checkpoint::passive) kept.logPages = 0;
  return pages - brought;
}

bool SQLiteDatabase::isReadOnly() const { return sqlite3_db_readonly(handle(), "main") == 1; }

const char* SQLiteDatabase::path() const { return sqlite3_db_filename(handle(), "main"); }

std::int64_t SQLiteDatabase::changes() const { return sqlite3_changes64(handle()); }

std::int64_t SQLiteDatabase::totalChanges() const { return sqlite3_total_changes64(handle()); }

SQLiteStatus SQLiteDatabase::execute(const char* sql) {
  return status(sqlite3_exec(handle(), sql, nullptr, nullptr, nullptr));
}

SQLiteResult<SQLiteStatement> SQLiteDatabase::prepare(std::string_view sql) {
  sqlite3_stmt* prepared = nullptr;
  const int code = sqlite3_prepare_v3(handle(), sql.data(), static_cast<int>(sql.size()),
                                      SQLITE_PREPARE_PERSISTENT, &prepared, nullptr);
  SQLiteStatement statement;
  statement.statement_.reset(prepared);
  if (code != SQLITE_OK) return tl::unexpected(SQLiteError{code});
  return statement;
}

SQLiteResult<std::int64_t> SQLiteDatabase::integer(std::string_view sql) {
  auto statement = prepare(sql);
  if (!statement) return tl::unexpected(statement.error());
  const auto row = statement->step();
  if (!row) return tl::unexpected(row.error());
  return *row ? statement->integer(0) : 0;
}

SQLiteStatus SQLiteDatabase::resetFile() {
  sqlite3_db_config(handle(), SQLITE_DBCONFIG_RESET_DATABASE, 1, nullptr);
  const SQLiteStatus done = execute("VACUUM");
  sqlite3_db_config(handle(), SQLITE_DBCONFIG_RESET_DATABASE, 0, nullptr);
  return done;
}

bool SQLiteDatabase::copyFile(const std::filesystem::path& copy) {
  sqlite3_file* file = nullptr;
  sqlite3_file_control(handle(), "main", SQLITE_FCNTL_FILE_POINTER, static_cast<void*>(&file));
  sqlite3_int64 size = 0;
  if (file == nullptr || file->pMethods == nullptr ||
      file->pMethods->xFileSize(file, &size) != SQLITE_OK) {
    return false;
  }
  restrictToOwner(copy);
  std::ofstream out(copy, std::ios::binary | std::ios::trunc);
  std::array<char, 65536> buffer{};
  for (sqlite3_int64 done = 0; done < size && out;) {
    const auto part = std::min<sqlite3_int64>(size - done, buffer.size());
    const int code = file->pMethods->xRead(file, buffer.data(), static_cast<int>(part), done);
    if (code != SQLITE_OK) return false;
    out.write(buffer.data(), part);
    done += part;
  }
  out.close();
  return out.good();
}

}  // namespace paperloom::internal
