#pragma once

#include <filesystem>

#include "paperloom/platform/internal/sqlite/SQLite.h"

// The cache's file: its tables (docs/cache-format.md) and how it is opened.
namespace paperloom::internal {

enum class CacheContents {
  keep,
  discard,  // they are proven to be damaged
  replace,  // emptying the file has not helped: what other processes share of it is damaged
};

// Opens the file for writing. A file that is missing, damaged in a way that shows, foreign or of
// another format version becomes an empty cache.
SQLiteResult<SQLiteDatabase> openCacheFile(const std::filesystem::path& file,
                                           SQLiteDatabase::Deadline deadline,
                                           CacheContents contents);
// One more connection to the file, which openCacheFile() has opened before.
SQLiteResult<SQLiteDatabase> connectCacheFile(const std::filesystem::path& file,
                                              SQLiteDatabase::Deadline deadline);
// Opens a file that cannot be written.
SQLiteResult<SQLiteDatabase> openCacheFileToRead(const std::filesystem::path& file,
                                                 SQLiteDatabase::Deadline deadline);

}  // namespace paperloom::internal
