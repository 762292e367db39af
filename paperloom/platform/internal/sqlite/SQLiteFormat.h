#pragma once

#include <span>
#include <string>
#include <string_view>

#include "paperloom/platform/internal/sqlite/SQLite.h"

namespace paperloom::internal {

struct SchemaObject {
  std::string_view type;
  std::string_view name;
  std::string_view table;
  const char* sql;
};

// What a file of ours says about itself. It is one of ours only if it says exactly this: one
// changed letter in the schema would make SQLite read the tables in another way.
struct SQLiteFormat {
  std::int64_t application;
  std::int64_t version;
  std::span<const SchemaObject> schema;
};

enum class Examined {
  ours,
  empty,
  wrong,  // damaged, of another version or somebody else's
};

// Judges the file by what it says. Fails when that cannot be read now: a lock, a full disk, no
// permission.
SQLiteResult<Examined> examine(SQLiteDatabase& database, const SQLiteFormat& format);

// Gives an empty file the format, and runs `rows` in the same transaction. Does nothing when
// another process has been quicker.
SQLiteStatus establish(SQLiteDatabase& database, const SQLiteFormat& format,
                       const std::string& rows);

}  // namespace paperloom::internal
