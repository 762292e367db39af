#include "paperloom/platform/internal/cache/CacheFile.h"

#include <unistd.h>

#include <array>
#include <thread>

#include "paperloom/platform/internal/base/Try.h"
#include "paperloom/platform/internal/sqlite/SQLiteFormat.h"

namespace paperloom::internal {
namespace {

using Deadline = SQLiteDatabase::Deadline;

constexpr std::array<SchemaObject, 4> schema{{
    {"table", "answers", "answers",
     "CREATE TABLE answers(id INTEGER PRIMARY KEY, sum INTEGER NOT NULL, head BLOB NOT NULL, "
     "body BLOB NOT NULL)"},
    {"table", "uses", "uses",
     "CREATE TABLE uses(id INTEGER PRIMARY KEY, size INTEGER NOT NULL, used INTEGER NOT NULL)"},
    {"index", "usesByAge", "uses", "CREATE INDEX usesByAge ON uses(used)"},
    {"table", "state", "state",
     "CREATE TABLE state(id INTEGER PRIMARY KEY, bytes INTEGER NOT NULL, clock INTEGER NOT NULL, "
     "writer INTEGER NOT NULL, changes INTEGER NOT NULL, scrub INTEGER NOT NULL)"},
}};
constexpr SQLiteFormat format{.application = 0x504C4343, .version = 2, .schema = schema};

// A new file has nothing to lose in a power cut: made without syncs, it is damaged then, and is
// made again.
SQLiteStatus configure(SQLiteDatabase& database, Examined examined) {
  const bool isNew = examined == Examined::empty;
  if (isNew) TRY(database.execute("PRAGMA page_size=2048; PRAGMA synchronous=OFF"));
  TRY(database.execute("PRAGMA journal_mode=WAL"));
  if (isNew) TRY(establish(database, format, "INSERT INTO state VALUES(1, 0, 1, 0, 0, 0)"));
  // Some builds of SQLite overwrite what is removed, which costs as much as storing it. Here only
  // the clearing of everything promises to leave nothing behind, and sees to that itself.
  return database.execute(
      "PRAGMA synchronous=NORMAL; PRAGMA secure_delete=OFF; PRAGMA temp_store=MEMORY;"
      "PRAGMA cache_size=-2048");
}

// Without reading a page, so that every connection judges every page alike.
SQLiteStatus checkEveryPage(SQLiteDatabase& database) {
  return database.execute("PRAGMA cell_size_check=ON");
}

// Processes that have them open find out that they lie there no more, and open the new ones.
void removeFiles(const std::filesystem::path& file) {
  for (const char* suffix : {"-shm", "-wal", ""}) ::unlink((file.string() + suffix).c_str());
}

SQLiteResult<SQLiteDatabase> tryOpen(const std::filesystem::path& file, Deadline deadline,
                                     CacheContents contents) {
  if (contents == CacheContents::replace) removeFiles(file);
  SQLiteDatabase database = TRY(connectCacheFile(file, deadline));
  Examined examined = Examined::wrong;
  if (contents != CacheContents::discard) examined = TRY(examine(database, format));
  if (examined == Examined::wrong) {
    database = {};
    database = TRY(connectCacheFile(file, deadline));
    TRY(database.resetFile());
    examined = Examined::empty;
  }
  TRY(configure(database, examined));
  return database;
}

}  // namespace

SQLiteResult<SQLiteDatabase> connectCacheFile(const std::filesystem::path& file,
                                              Deadline deadline) {
  SQLiteDatabase database = TRY(SQLiteDatabase::open(file, deadline));
  TRY(checkEveryPage(database));
  return database;
}

SQLiteResult<SQLiteDatabase> openCacheFileToRead(const std::filesystem::path& file,
                                                 Deadline deadline) {
  SQLiteDatabase database = TRY(SQLiteDatabase::openToRead(file, deadline));
  TRY(checkEveryPage(database));
  const Examined examined = TRY(examine(database, format));
  if (examined != Examined::ours) return tl::unexpected(SQLiteError::corrupt());
  return database;
}

SQLiteResult<SQLiteDatabase> openCacheFile(const std::filesystem::path& file, Deadline deadline,
                                           CacheContents contents) {
  for (;;) {
    auto database = tryOpen(file, deadline, contents);
    // Changing the journal's mode gives up at once when another process is doing the same.
    const bool again =
        !database && database.error().isBusy() && std::chrono::steady_clock::now() < deadline;
    if (!again) return database;
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
}

}  // namespace paperloom::internal
