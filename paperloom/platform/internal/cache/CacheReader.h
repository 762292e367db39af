#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "paperloom/platform/internal/cache/CacheEntryFormat.h"
#include "paperloom/platform/internal/sqlite/SQLite.h"
#include "paperloom/platform/internal/sqlite/SQLiteFiles.h"

namespace paperloom::internal {

// Says which writer has changed the file last. Equal stamps: the same contents.
struct CacheStamp {
  std::int64_t writer = 0;
  std::int64_t changes = 0;

  friend bool operator==(const CacheStamp&, const CacheStamp&) = default;
};

// A connection for reading alone: it never waits for writers. Belongs to one thread at a time.
class CacheReader {
 public:
  // A connection from connectCacheFile() or openCacheFileToRead().
  explicit CacheReader(SQLiteDatabase database);
  ~CacheReader();
  CacheReader(CacheReader&&) noexcept;
  CacheReader& operator=(CacheReader&&) noexcept;

  // Whether the file can be read at all.
  SQLiteStatus prepare();
  void waitForLocksUntil(SQLiteDatabase::Deadline deadline);

  // An entry whose bytes are not those that were stored.
  struct Damaged {
    std::int64_t id = 0;
    std::int64_t sum = 0;
  };
  struct Found {
    std::optional<CacheEntry> entry;
    std::vector<Damaged> damaged;
  };
  // The newest variant that fits the request, its checksums verified. `url` is the request's.
  SQLiteResult<Found> find(const CacheKey& key, VaryMatcher& request, const URL& url);

  // Changes whenever another connection has committed something.
  SQLiteResult<std::int64_t> dataVersion();
  SQLiteResult<CacheStamp> stamp();
  SQLiteResult<std::int64_t> clock();
  // The size of all entries in bytes.
  SQLiteResult<std::int64_t> usage();
  struct Listed {
    std::string url;
    CacheEntry entry;  // without its body
    std::int64_t used = 0;
  };
  SQLiteResult<std::vector<Listed>> list();
  SQLiteResult<std::vector<std::int64_t>> ids();
  SQLiteLogMark logMark() const;

 private:
  struct Sql;

  std::unique_ptr<Sql> sql_;
};

}  // namespace paperloom::internal
