#include "paperloom/platform/internal/cache/CacheReader.h"

#include <string>
#include <utility>

#include "paperloom/platform/internal/base/Checksum.h"
#include "paperloom/platform/internal/base/Try.h"

namespace paperloom::internal {

SQLiteResult<CacheReader> CacheReader::on(SQLiteDatabase database) {
  CacheReader reader;
  reader.database_ = std::move(database);
  TRY(reader.database_.execute("PRAGMA cache_size=-2048"));
  reader.find_ = TRY(reader.database_.prepare(
      "SELECT uses.id, answers.id, sum, head, body "
      "FROM uses LEFT JOIN answers ON answers.id = uses.id WHERE uses.id BETWEEN ?1 AND ?2"));
  reader.dataVersion_ = TRY(reader.database_.prepare("PRAGMA data_version"));
  return reader;
}

SQLiteResult<CacheReader::Found> CacheReader::find(const CacheKey& key, VaryMatcher& request,
                                                   const URL& url) {
  find_.bind(1, key.firstId);
  find_.bind(2, key.lastId());
  Found found;
  for (;;) {
    const auto row = find_.step();
    if (!row || !*row) {
      find_.reset();
      if (!row) return tl::unexpected(row.error());
      return found;
    }
    // A row that is there and cannot be found: the tree that leads to it is damaged.
    if (find_.integer(1) != find_.integer(0)) {
      find_.reset();
      return tl::unexpected(SQLiteError::corrupt());
    }
    if (!readRow(key, request, url, found)) {
      found.damaged.push_back({find_.integer(0), find_.integer(2)});
    }
  }
}

// False for a damaged row.
bool CacheReader::readRow(const CacheKey& key, VaryMatcher& request, const URL& url, Found& found) {
  const std::int64_t id = find_.integer(0);
  const std::string_view bytes = find_.blob(3);
  if (static_cast<std::int64_t>(checksum(bytes, static_cast<std::uint64_t>(id))) !=
      find_.integer(2)) {
    return false;
  }
  const auto head = CacheHead::parse(bytes);
  if (!head) return false;
  if (head->url != key.url || !request.matches(head->varyNames, head->varyDigest)) return true;
  if (found.entry && found.entry->response.responseTime >= head->responseTime) return true;
  const std::string_view body = find_.blob(4);
  if (!head->fitsBody(body)) return false;
  auto answer = head->answer(&url);
  if (!answer) return false;
  answer->data = Data(std::string(body));
  found.entry = CacheEntry{{std::string(head->varyNames), std::string(head->varyDigest)},
                           std::move(*answer),
                           id,
                           static_cast<std::int64_t>(bytes.size() + body.size())};
  return true;
}

SQLiteResult<std::int64_t> CacheReader::dataVersion() {
  const auto row = dataVersion_.step();
  const std::int64_t version = row && *row ? dataVersion_.integer(0) : 0;
  dataVersion_.reset();
  if (!row) return tl::unexpected(row.error());
  return version;
}

SQLiteResult<CacheStamp> CacheReader::stamp() {
  auto read = database_.prepare("SELECT writer, changes FROM state WHERE id = 1");
  if (!read) return tl::unexpected(read.error());
  const auto row = read->step();
  if (!row) return tl::unexpected(row.error());
  return *row ? CacheStamp{read->integer(0), read->integer(1)} : CacheStamp{};
}

SQLiteResult<std::int64_t> CacheReader::usage() {
  return database_.integer("SELECT bytes FROM state WHERE id = 1");
}

SQLiteResult<std::vector<CacheReader::Listed>> CacheReader::list() {
  auto read = database_.prepare(
      "SELECT answers.id, answers.sum, answers.head, uses.used "
      "FROM uses JOIN answers ON answers.id = uses.id");
  if (!read) return tl::unexpected(read.error());
  std::vector<Listed> entries;
  for (;;) {
    const auto row = read->step();
    if (!row) return tl::unexpected(row.error());
    if (!*row) return entries;
    const std::int64_t id = read->integer(0);
    const std::string_view bytes = read->blob(2);
    const auto sum = static_cast<std::int64_t>(checksum(bytes, static_cast<std::uint64_t>(id)));
    const auto head = sum == read->integer(1) ? CacheHead::parse(bytes) : std::nullopt;
    auto answer = head ? head->answer() : std::nullopt;
    if (!answer) continue;
    entries.push_back({std::string(head->url),
                       {{std::string(head->varyNames), std::string(head->varyDigest)},
                        std::move(*answer),
                        id,
                        static_cast<std::int64_t>(bytes.size() + head->bodySize)},
                       read->integer(3)});
  }
}

}  // namespace paperloom::internal
