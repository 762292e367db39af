#include "paperloom/platform/internal/sqlite/SQLiteFormat.h"

#include <unistd.h>

#include <algorithm>
#include <set>

namespace paperloom::internal {
namespace {

// The objects are compared as a set: SQLite lists them in any order, and VACUUM changes it.
SQLiteResult<Examined> compareSchema(SQLiteDatabase& database, const SQLiteFormat& format) {
  auto list = database.prepare("SELECT type, name, tbl_name, sql FROM sqlite_schema");
  if (!list) return tl::unexpected(list.error());
  std::set<std::string_view> seen;
  for (;;) {
    const auto row = list->step();
    if (!row) return tl::unexpected(row.error());
    if (!*row) break;
    const auto object =
        std::find_if(format.schema.begin(), format.schema.end(), [&](const SchemaObject& each) {
          return list->text(0) == each.type && list->text(1) == each.name &&
                 list->text(2) == each.table && list->text(3) == each.sql;
        });
    if (object == format.schema.end() || !seen.insert(object->name).second) return Examined::wrong;
  }
  if (seen.empty()) return Examined::empty;
  return seen.size() == format.schema.size() ? Examined::ours : Examined::wrong;
}

SQLiteResult<Examined> afterError(const SQLiteError& error) {
  if (error.isDamage()) return Examined::wrong;
  return tl::unexpected(error);
}

}  // namespace

SQLiteResult<Examined> examine(SQLiteDatabase& database, const SQLiteFormat& format) {
  const auto version = database.integer("PRAGMA user_version");
  if (!version) return afterError(version.error());
  const auto application = database.integer("PRAGMA application_id");
  if (!application) return afterError(application.error());
  const auto schema = compareSchema(database, format);
  if (!schema) return afterError(schema.error());
  if (*schema == Examined::empty && *version == 0 && *application == 0) return Examined::empty;
  if (*schema != Examined::ours) return Examined::wrong;
  if (*version != format.version || *application != format.application) return Examined::wrong;
  // One changed bit in the file's header can declare it read-only.
  const bool contradicts = database.isReadOnly() && ::access(database.path(), W_OK) == 0;
  return contradicts ? Examined::wrong : Examined::ours;
}

SQLiteStatus establish(SQLiteDatabase& database, const SQLiteFormat& format,
                       const std::string& rows) {
  if (auto begun = database.execute("BEGIN IMMEDIATE"); !begun) return begun;
  const auto examined = examine(database, format);
  if (examined && *examined != Examined::empty) return database.execute("ROLLBACK");
  SQLiteStatus done;
  for (const SchemaObject& object : format.schema) {
    if (done) done = database.execute(object.sql);
  }
  const std::string rest = rows + "; PRAGMA user_version=" + std::to_string(format.version) +
                           "; PRAGMA application_id=" + std::to_string(format.application) +
                           "; COMMIT";
  if (done) done = database.execute(rest.c_str());
  if (!done) static_cast<void>(database.execute("ROLLBACK"));
  return done;
}

}  // namespace paperloom::internal
