#include "paperloom/platform/internal/sqlite/SQLite.h"

#include <fcntl.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <fstream>
#include <thread>

namespace paperloom::internal {
namespace {

SQLiteStatus status(int code) {
  if (code == SQLITE_OK || code == SQLITE_DONE || code == SQLITE_ROW) return {};
  return tl::unexpected(SQLiteError{code});
}

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
  if (::stat(file.c_str(), &info) == 0 && S_ISREG(info.st_mode) && (info.st_mode & 0077) != 0) {
    ::chmod(file.c_str(), 0600);
  }
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

bool SQLiteError::isCorruption() const {
  const int primary = code & 0xff;
  return primary == SQLITE_CORRUPT || primary == SQLITE_NOTADB || primary == SQLITE_FORMAT;
}

bool SQLiteError::isDamage() const { return isCorruption() || (code & 0xff) == SQLITE_ERROR; }

bool SQLiteError::isBusy() const {
  const int primary = code & 0xff;
  return primary == SQLITE_BUSY || primary == SQLITE_LOCKED || primary == SQLITE_PROTOCOL;
}

void SQLiteStatement::Finalizer::operator()(sqlite3_stmt* statement) const {
  sqlite3_finalize(statement);
}

void SQLiteStatement::bind(int index, std::int64_t value) {
  sqlite3_bind_int64(statement_.get(), index, value);
}

void SQLiteStatement::bind(int index, double value) {
  sqlite3_bind_double(statement_.get(), index, value);
}

void SQLiteStatement::bindText(int index, std::string_view text) {
  const char* start = text.data() != nullptr ? text.data() : "";
  sqlite3_bind_text64(statement_.get(), index, start, text.size(), SQLITE_STATIC, SQLITE_UTF8);
}

void SQLiteStatement::bindBlob(int index, std::string_view bytes) {
  const char* start = bytes.data() != nullptr ? bytes.data() : "";
  sqlite3_bind_blob64(statement_.get(), index, start, bytes.size(), SQLITE_STATIC);
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
                                                  std::chrono::milliseconds busyTimeout) {
  restrictToOwner(file);
  sqlite3* handle = nullptr;
  const int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX |
                    SQLITE_OPEN_PRIVATECACHE | SQLITE_OPEN_EXRESCODE;
  const int code = sqlite3_open_v2(file.c_str(), &handle, flags, nullptr);
  SQLiteDatabase database;
  database.database_.reset(handle);
  if (code != SQLITE_OK) return tl::unexpected(SQLiteError{code});
  sqlite3_busy_timeout(handle, static_cast<int>(busyTimeout.count()));
  distrustContents(handle);
  return database;
}

void SQLiteDatabase::waitForLocksUntil(std::chrono::steady_clock::time_point deadline) {
  auto& kept = database_.get_deleter().deadline;
  if (kept) {
    *kept = deadline;
    return;
  }
  kept = std::make_unique<std::chrono::steady_clock::time_point>(deadline);
  sqlite3_busy_handler(handle(), sleepUntil, kept.get());
}

bool SQLiteDatabase::isReadOnly() const { return sqlite3_db_readonly(handle(), "main") == 1; }

const char* SQLiteDatabase::path() const { return sqlite3_db_filename(handle(), "main"); }

std::int64_t SQLiteDatabase::changes() const { return sqlite3_changes64(handle()); }

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
