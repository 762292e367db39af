#include "paperloom/platform/internal/cache/CacheFile.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <bitset>
#include <string>
#include <string_view>
#include <thread>

namespace paperloom::internal {
namespace {

using Deadline = std::chrono::steady_clock::time_point;

constexpr std::int64_t applicationId = 0x504C4343;
constexpr std::int64_t formatVersion = 1;

// An object of the schema. SQLite lists them in any order it likes: VACUUM changes it.
struct SchemaObject {
  std::string_view type;
  std::string_view name;
  std::string_view table;
  const char* sql;
};

// Compared with what the file says, word for word: one changed letter in it would make SQLite read
// the tables in another way.
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

enum class Examined { ours, empty, wrong };

SQLiteResult<Examined> compareSchema(SQLiteDatabase& database) {
  auto list = database.prepare("SELECT type, name, tbl_name, sql FROM sqlite_schema");
  if (!list) return tl::unexpected(list.error());
  std::bitset<schema.size()> seen;
  for (std::size_t rows = 0;; ++rows) {
    const auto row = list->step();
    if (!row) return tl::unexpected(row.error());
    if (!*row) {
      if (rows == 0) return Examined::empty;
      break;
    }
    const auto* const object = std::find_if(schema.begin(), schema.end(), [&](const auto& each) {
      return list->text(0) == each.type && list->text(1) == each.name &&
             list->text(2) == each.table && list->text(3) == each.sql;
    });
    if (object == schema.end() || rows >= schema.size()) return Examined::wrong;
    seen.set(static_cast<std::size_t>(object - schema.begin()));
  }
  if (!seen.all()) return Examined::wrong;
  const auto state = database.integer("SELECT count(*) FROM state WHERE id = 1");
  if (!state) return tl::unexpected(state.error());
  return *state == 1 ? Examined::ours : Examined::wrong;
}

// SQLite says "error" for a schema that it cannot make sense of.
bool isDamage(const SQLiteError& error) { return error.isCorruption() || error.code == 1; }

SQLiteResult<Examined> afterError(const SQLiteError& error) {
  if (isDamage(error)) return Examined::wrong;
  return tl::unexpected(error);
}

SQLiteResult<Examined> examine(SQLiteDatabase& database) {
  const auto version = database.integer("PRAGMA user_version");
  if (!version) return afterError(version.error());
  const auto application = database.integer("PRAGMA application_id");
  if (!application) return afterError(application.error());
  const auto tables = compareSchema(database);
  if (!tables) return afterError(tables.error());
  if (*tables == Examined::empty && *version == 0 && *application == 0) return Examined::empty;
  if (*version != formatVersion || *application != applicationId) return Examined::wrong;
  return *tables == Examined::ours ? Examined::ours : Examined::wrong;
}

SQLiteStatus configure(SQLiteDatabase& database) {
  static_assert(cachePageSize == 2048);
  return database.execute(
      "PRAGMA page_size=2048; PRAGMA journal_mode=WAL; PRAGMA synchronous=NORMAL;"
      "PRAGMA temp_store=MEMORY; PRAGMA cell_size_check=ON; PRAGMA cache_size=-2048");
}

SQLiteStatus createTables(SQLiteDatabase& database) {
  if (auto begun = database.execute("BEGIN IMMEDIATE"); !begun) return begun;
  // Another process may have done it while this one waited for the lock.
  const auto examined = examine(database);
  if (examined && *examined != Examined::empty) return database.execute("ROLLBACK");
  SQLiteStatus done;
  for (const SchemaObject& object : schema) {
    if (done) done = database.execute(object.sql);
  }
  const std::string rest = "INSERT INTO state VALUES(1, 0, 1, 0, 0, 0); PRAGMA user_version=" +
                           std::to_string(formatVersion) +
                           "; PRAGMA application_id=" + std::to_string(applicationId) + "; COMMIT";
  if (done) done = database.execute(rest.c_str());
  if (!done) static_cast<void>(database.execute("ROLLBACK"));
  return done;
}

SQLiteResult<SQLiteDatabase> connect(const std::filesystem::path& file, Deadline deadline) {
  auto database = SQLiteDatabase::open(file, std::chrono::milliseconds(0));
  if (database) database->waitForLocksUntil(deadline);
  return database;
}

SQLiteResult<SQLiteDatabase> tryOpen(const std::filesystem::path& file, Deadline deadline,
                                     CacheContents contents) {
  auto database = connect(file, deadline);
  if (!database) return database;
  auto examined = contents == CacheContents::keep ? examine(*database) : Examined::wrong;
  if (!examined) return tl::unexpected(examined.error());
  // A changed bit in the file's header can declare it read-only.
  if (*examined == Examined::ours && database->isReadOnly() && ::access(file.c_str(), W_OK) == 0) {
    examined = Examined::wrong;
  }
  if (*examined == Examined::wrong) {
    *database = {};
    database = connect(file, deadline);
    if (!database) return database;
    if (const auto reset = database->resetFile(); !reset) return tl::unexpected(reset.error());
    examined = Examined::empty;
  }
  if (const auto done = configure(*database); !done) return tl::unexpected(done.error());
  if (*examined == Examined::empty) {
    if (const auto made = createTables(*database); !made) return tl::unexpected(made.error());
  }
  return database;
}

}  // namespace

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
