#include "paperloom/platform/internal/cache/CacheFile.h"

#include <array>
#include <thread>

#include "paperloom/platform/internal/sqlite/SQLiteFormat.h"

namespace paperloom::internal {
namespace {

using Deadline = std::chrono::steady_clock::time_point;

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

SQLiteStatus configure(SQLiteDatabase& database) {
  static_assert(cachePageSize == 2048);
  return database.execute(
      "PRAGMA page_size=2048; PRAGMA journal_mode=WAL; PRAGMA synchronous=NORMAL;"
      "PRAGMA temp_store=MEMORY; PRAGMA cache_size=-2048");
}

SQLiteResult<SQLiteDatabase> tryOpen(const std::filesystem::path& file, Deadline deadline,
                                     CacheContents contents) {
  auto database = connectCacheFile(file, deadline);
  if (!database) return database;
  auto examined = contents == CacheContents::keep ? examine(*database, format) : Examined::wrong;
  if (!examined) return tl::unexpected(examined.error());
  if (*examined == Examined::wrong) {
    *database = {};
    database = connectCacheFile(file, deadline);
    if (!database) return database;
    if (const auto reset = database->resetFile(); !reset) return tl::unexpected(reset.error());
    examined = Examined::empty;
  }
  if (const auto done = configure(*database); !done) return tl::unexpected(done.error());
  if (*examined == Examined::empty) {
    const auto made = establish(*database, format, "INSERT INTO state VALUES(1, 0, 1, 0, 0, 0)");
    if (!made) return tl::unexpected(made.error());
  }
  return database;
}

}  // namespace

SQLiteResult<SQLiteDatabase> connectCacheFile(const std::filesystem::path& file,
                                              Deadline deadline) {
  auto database = SQLiteDatabase::open(file, std::chrono::milliseconds(0));
  if (!database) return database;
  database->waitForLocksUntil(deadline);
  // Set without reading a page, so that every connection judges every page alike.
  const auto configured = database->execute("PRAGMA cell_size_check=ON");
  if (!configured) return tl::unexpected(configured.error());
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
