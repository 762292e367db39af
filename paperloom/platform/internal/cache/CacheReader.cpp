#include "paperloom/platform/internal/cache/CacheReader.h"

#include <string>
#include <tuple>
#include <utility>

#include "paperloom/platform/internal/base/Checksum.h"
#include "paperloom/platform/internal/base/Try.h"
#include "paperloom/platform/internal/sqlite/SQLiteCall.h"

namespace paperloom::internal {
namespace {

std::optional<CacheHead> soundHead(std::int64_t id, std::int64_t sum, std::string_view bytes) {
  const auto wanted = static_cast<std::uint64_t>(sum);
  if (checksum(bytes, static_cast<std::uint64_t>(id)) != wanted) return std::nullopt;
  return CacheHead::parse(bytes);
}

CacheEntry entryOf(const CacheHead& head, CachedURLResponse response, std::int64_t id,
                   std::size_t headSize) {
  return {{std::string(head.varyNames), std::string(head.varyDigest)},
          std::move(response),
          id,
          static_cast<std::int64_t>(headSize + head.bodySize)};
}

struct Row {
  std::int64_t id;
  std::int64_t sum;
  std::string_view head;
  std::string_view body;
};

// Takes the row if it is what is looked for, and a newer one than was found so far. False for a
// damaged row.
bool take(const Row& row, const CacheKey& key, VaryMatcher& request, const URL& url,
          std::optional<CacheEntry>& found) {
  const auto head = soundHead(row.id, row.sum, row.head);
  if (!head) return false;
  if (head->url != key.url || !request.matches(head->varyNames, head->varyDigest)) return true;
  if (found && found->response.responseTime >= head->responseTime) return true;
  if (!head->fitsBody(row.body)) return false;
  auto answer = head->answer(&url);
  if (!answer) return false;
  answer->data = Data(std::string(row.body));
  found = entryOf(*head, *std::move(answer), row.id, row.head.size());
  return true;
}

}  // namespace

struct CacheReader::Sql {
  explicit Sql(SQLiteDatabase opened) : database(std::move(opened)) {}

  SQLiteDatabase database;
  SQLiteCall<std::tuple<std::int64_t, std::int64_t, std::int64_t, SQLiteBlob, SQLiteBlob>(
      std::int64_t, std::int64_t)>
      variants{database,
               "SELECT uses.id, answers.id, sum, head, body "
               "FROM uses LEFT JOIN answers ON answers.id = uses.id "
               "WHERE uses.id BETWEEN ?1 AND ?2"};
  SQLiteCall<std::tuple<std::int64_t>()> dataVersion{database, "PRAGMA data_version"};
  SQLiteCall<std::tuple<std::int64_t, std::int64_t>()> stamp{
      database, "SELECT writer, changes FROM state WHERE id = 1"};
  SQLiteCall<std::tuple<std::int64_t>()> clock{database, "SELECT clock FROM state WHERE id = 1"};
  SQLiteCall<std::tuple<std::int64_t>()> usage{database, "SELECT bytes FROM state WHERE id = 1"};
  SQLiteCall<std::tuple<std::int64_t, std::int64_t, SQLiteBlob, std::int64_t>()> all{
      database,
      "SELECT answers.id, answers.sum, answers.head, uses.used "
      "FROM uses JOIN answers ON answers.id = uses.id"};
  SQLiteCall<std::tuple<std::int64_t>()> ids{database, "SELECT id FROM uses"};
};

CacheReader::CacheReader(SQLiteDatabase database)
    : sql_(std::make_unique<Sql>(std::move(database))) {}

CacheReader::~CacheReader() = default;
CacheReader::CacheReader(CacheReader&&) noexcept = default;
CacheReader& CacheReader::operator=(CacheReader&&) noexcept = default;

SQLiteStatus CacheReader::prepare() {
  TRY(sql_->database.execute("PRAGMA cache_size=-2048"));
  TRY(dataVersion());
  TRY(usage());
  return {};
}

void CacheReader::waitForLocksUntil(SQLiteDatabase::Deadline deadline) {
  sql_->database.waitForLocksUntil(deadline);
}

SQLiteResult<CacheReader::Found> CacheReader::find(const CacheKey& key, VaryMatcher& request,
                                                   const URL& url) {
  Found found;
  bool lost = false;
  const auto look = [&](std::int64_t use, std::int64_t id, std::int64_t sum, SQLiteBlob head,
                        SQLiteBlob body) {
    // A row that is there and cannot be found: the tree that leads to it is damaged.
    lost = lost || use != id;
    const Row row{id, sum, head.bytes, body.bytes};
    if (!take(row, key, request, url, found.entry)) found.damaged.push_back({id, sum});
  };
  TRY(sql_->variants.forEach(look, key.firstId, key.lastId()));
  if (lost) return tl::unexpected(SQLiteError::corrupt());
  return found;
}

SQLiteResult<std::int64_t> CacheReader::dataVersion() {
  const auto row = TRY(sql_->dataVersion());
  return row ? std::get<0>(*row) : 0;
}

SQLiteResult<CacheStamp> CacheReader::stamp() {
  const auto row = TRY(sql_->stamp());
  return row ? CacheStamp{std::get<0>(*row), std::get<1>(*row)} : CacheStamp{};
}

SQLiteResult<std::int64_t> CacheReader::clock() {
  const auto row = TRY(sql_->clock());
  return row ? std::get<0>(*row) : 0;
}

SQLiteResult<std::int64_t> CacheReader::usage() {
  const auto row = TRY(sql_->usage());
  return row ? std::get<0>(*row) : 0;
}

SQLiteResult<std::vector<CacheReader::Listed>> CacheReader::list() {
  std::vector<Listed> entries;
  const auto look = [&](std::int64_t id, std::int64_t sum, SQLiteBlob bytes, std::int64_t used) {
    const auto head = soundHead(id, sum, bytes.bytes);
    auto answer = head ? head->answer() : std::nullopt;
    if (!answer) return;
    CacheEntry entry = entryOf(*head, *std::move(answer), id, bytes.bytes.size());
    entries.push_back({std::string(head->url), std::move(entry), used});
  };
  TRY(sql_->all.forEach(look));
  return entries;
}

SQLiteResult<std::vector<std::int64_t>> CacheReader::ids() {
  std::vector<std::int64_t> ids;
  TRY(sql_->ids.forEach([&](std::int64_t id) { ids.push_back(id); }));
  return ids;
}

SQLiteLogMark CacheReader::logMark() const { return internal::logMark(sql_->database.handle()); }

}  // namespace paperloom::internal
