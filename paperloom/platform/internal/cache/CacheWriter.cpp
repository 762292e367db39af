#include "paperloom/platform/internal/cache/CacheWriter.h"

#include <algorithm>
#include <chrono>
#include <thread>
#include <utility>

#include "paperloom/platform/internal/base/Checksum.h"
#include "paperloom/platform/internal/base/Try.h"

namespace paperloom::internal {
namespace {

// Uses written while one answer makes room for itself.
constexpr int mostTouches = 2'000;
constexpr std::int64_t largestClock = std::int64_t{1} << 62;

// SQLite's pages hold more than the entries' bytes; this much more, and the tables themselves.
std::int64_t largestFile(std::int64_t capacity) { return capacity + capacity / 10 + 65536; }

tl::unexpected<SQLiteError> corrupt() { return tl::unexpected(SQLiteError::corrupt()); }

// In bytes. The log counts as well when there is little room for it.
std::int64_t logLimit(std::int64_t capacity) {
  return std::clamp<std::int64_t>(capacity / 20, 65536, 4194304);
}
// Multiples of it, while the log cannot be started anew.
constexpr int longLog = 4;
constexpr int tooLongLog = 16;

}  // namespace

SQLiteResult<CacheWriter> CacheWriter::open(const std::filesystem::path& file,
                                            SQLiteDatabase::Deadline deadline,
                                            CacheContents contents, std::int64_t name) {
  static constexpr std::array<const char*, sqlCount> sql{
      "BEGIN IMMEDIATE",
      "COMMIT",
      "ROLLBACK",
      "SELECT bytes, clock, writer, changes, scrub FROM state WHERE id = 1",
      "UPDATE state SET bytes = ?1, clock = ?2, writer = ?3, changes = ?4, scrub = ?5 WHERE id = 1",
      "SELECT id, head FROM answers WHERE id BETWEEN ?1 AND ?2",
      "INSERT INTO answers(id, sum, head, body) VALUES(?1, ?2, ?3, ?4)",
      "INSERT INTO uses(id, size, used) VALUES(?1, ?2, ?3)",
      "SELECT sum FROM answers WHERE id = ?1",
      "DELETE FROM answers WHERE id = ?1",
      "DELETE FROM uses WHERE id = ?1 RETURNING size",
      "UPDATE uses SET used = ?2 WHERE id = ?1 AND used < ?2",
      "SELECT id, used FROM uses ORDER BY used LIMIT 1",
      "SELECT id FROM uses WHERE id BETWEEN ?1 AND ?2 ORDER BY used LIMIT 1",
      "PRAGMA page_count",
      "PRAGMA freelist_count",
  };
  auto database = openCacheFile(file, deadline, contents);
  if (!database) return tl::unexpected(database.error());
  CacheWriter writer;
  writer.database_ = std::move(*database);
  for (std::size_t i = 0; i < sqlCount; ++i) {
    auto statement = writer.database_.prepare(sql[i]);
    if (!statement) return tl::unexpected(statement.error());
    writer.statements_[i] = std::move(*statement);
  }
  writer.writer_ = name;
  SQLiteStatus counted = writer.begin(0, nullptr);
  if (counted) counted = writer.recount();
  if (counted) counted = writer.commit();
  if (!counted) {
    writer.rollback();
    return tl::unexpected(counted.error());
  }
  return writer;
}

SQLiteStatus CacheWriter::begin(std::int64_t clock, LastUse lastUse) {
  TRY(statements_[beginTransaction].run());
  changed_ = false;
  lastUse_ = std::move(lastUse);
  totalBefore_ = database_.totalChanges();
  const auto read = readState();
  if (!read) rollback();
  state_.clock = std::max(state_.clock, clock);
  return read;
}

SQLiteStatus CacheWriter::readState() {
  SQLiteStatement& read = statements_[selectState];
  const auto row = read.step();
  if (row && *row) {
    state_ = {read.integer(0), read.integer(1), read.integer(3), read.integer(4)};
    before_ = {read.integer(2), read.integer(3)};
    stateBefore_ = state_;
  }
  read.reset();
  if (!row) return tl::unexpected(row.error());
  if (!*row) return corrupt();
  const bool sane = state_.bytes >= 0 && state_.clock > 0 && state_.clock < largestClock;
  return sane ? SQLiteStatus() : recount();
}

SQLiteStatus CacheWriter::commit() {
  const bool same = !changed_ && database_.totalChanges() == totalBefore_ &&
                    state_.bytes == stateBefore_.bytes && state_.scrub == stateBefore_.scrub;
  if (same) return statements_[rollbackTransaction].run();
  // Wraps around like an unsigned number whatever a damaged file says.
  if (changed_) {
    state_.changes = static_cast<std::int64_t>(static_cast<std::uint64_t>(state_.changes) + 1);
  }
  SQLiteStatement& write = statements_[writeState];
  write.bind(1, state_.bytes);
  write.bind(2, state_.clock);
  write.bind(3, changed_ ? writer_ : before_.writer);
  write.bind(4, state_.changes);
  write.bind(5, state_.scrub);
  TRY(write.run());
  TRY(statements_[commitTransaction].run());
  // A log that cannot be brought into the file now is brought there later.
  if (database_.logPages() > logLimit_) {
    static_cast<void>(database_.checkpoint(SQLiteDatabase::Checkpoint::passive));
  }
  return {};
}

void CacheWriter::rollback() { static_cast<void>(statements_[rollbackTransaction].run()); }

SQLiteResult<std::int64_t> CacheWriter::store(const CacheKey& key, VaryMatcher& request,
                                              const CacheEntry& entry, std::int64_t capacity) {
  if (const auto limited = limitLog(capacity); !limited) return tl::unexpected(limited.error());
  if (const auto removed = removeMatching(key, request); !removed) {
    return tl::unexpected(removed.error());
  }
  const auto id = freeId(key);
  if (!id) return id;
  const std::string head = encodeHead(key, entry.vary, entry.response);
  const auto sum = static_cast<std::int64_t>(checksum(head, static_cast<std::uint64_t>(*id)));
  SQLiteStatement& answer = statements_[insertAnswer];
  answer.bind(1, *id);
  answer.bind(2, sum);
  answer.bindBlob(3, head);
  answer.bindBlob(4, entry.response.data.view());
  if (const auto stored = answer.run(); !stored) return tl::unexpected(stored.error());
  SQLiteStatement& use = statements_[insertUse];
  use.bind(1, *id);
  use.bind(2, entry.size);
  use.bind(3, ++state_.clock);
  if (const auto stored = use.run(); !stored) return tl::unexpected(stored.error());
  // Two tables in one place would overwrite each other.
  statements_[selectSum].bind(1, *id);
  const auto kept = value(selectSum);
  if (!kept) return kept;
  if (*kept != sum) return corrupt();
  state_.bytes += entry.size;
  changed_ = true;
  if (const auto evicted = evict(capacity); !evicted) return tl::unexpected(evicted.error());
  return id;
}

SQLiteStatus CacheWriter::removeMatching(const CacheKey& key, VaryMatcher& request) {
  const auto ids = matching(key, &request);
  if (!ids) return tl::unexpected(ids.error());
  for (const std::int64_t id : *ids) {
    if (const auto removed = removeRow(id); !removed) return tl::unexpected(removed.error());
  }
  return {};
}

SQLiteStatus CacheWriter::remove(const CacheKey& key) {
  const auto ids = matching(key, nullptr);
  if (!ids) return tl::unexpected(ids.error());
  for (const std::int64_t id : *ids) {
    if (const auto removed = removeRow(id); !removed) return tl::unexpected(removed.error());
  }
  return {};
}

SQLiteStatus CacheWriter::removeDamaged(const std::vector<CacheReader::Damaged>& rows) {
  // A flipped bit costs one entry. Pages that belong to two would cost one entry after the other.
  if (const auto sound = checkStructure(); !sound) return sound;
  for (const CacheReader::Damaged& row : rows) {
    statements_[selectSum].bind(1, row.id);
    const auto found = value(selectSum);
    if (!found) return tl::unexpected(found.error());
    if (*found != row.sum) continue;  // somebody has stored anew meanwhile
    if (const auto removed = removeRow(row.id); !removed) return tl::unexpected(removed.error());
  }
  return {};
}

// Once for each opening, since it reads the whole file.
SQLiteStatus CacheWriter::checkStructure() {
  if (structureChecked_) return {};
  auto check = database_.prepare("PRAGMA quick_check(1)");
  if (!check) return tl::unexpected(check.error());
  const auto row = check->step();
  if (!row) return tl::unexpected(row.error());
  if (!*row || check->text(0) != "ok") return corrupt();
  structureChecked_ = true;
  return {};
}

SQLiteStatus CacheWriter::touch(std::int64_t id, std::int64_t clock) {
  SQLiteStatement& statement = statements_[touchUse];
  statement.bind(1, id);
  statement.bind(2, clock);
  return statement.run();
}

SQLiteStatus CacheWriter::evict(std::int64_t capacity) {
  // More than twice the capacity is either a capacity just lowered or a damaged counter.
  if (state_.bytes / 2 > capacity) {
    if (const auto counted = recount(); !counted) return counted;
  }
  for (int touches = 0;;) {
    const auto over = isOver(capacity);
    if (!over) return tl::unexpected(over.error());
    if (!*over) return {};
    SQLiteStatement& oldest = statements_[selectOldest];
    const auto row = oldest.step();
    const std::int64_t id = row && *row ? oldest.integer(0) : 0;
    const std::int64_t used = row && *row ? oldest.integer(1) : 0;
    oldest.reset();
    if (!row) return tl::unexpected(row.error());
    if (!*row) return corrupt();  // nothing is left, and still it is too much
    const std::int64_t usedSince = lastUse_ && touches < mostTouches ? lastUse_(id) : 0;
    if (usedSince > used) {
      ++touches;
      if (const auto touched = touch(id, usedSince); !touched) return touched;
      continue;
    }
    const auto removed = removeRow(id);
    if (!removed) return tl::unexpected(removed.error());
    if (!*removed) return corrupt();  // the index names what the tables lack
  }
}

SQLiteStatus CacheWriter::removeAll() {
  const std::int64_t before = database_.totalChanges();
  TRY(database_.execute("DELETE FROM answers; DELETE FROM uses"));
  const std::int64_t unused = TRY(value(freePageCount));
  changed_ = changed_ || database_.totalChanges() != before;
  state_.bytes = 0;
  // What was removed earlier may be left there as well.
  if (unused != 0) state_.scrub = wholeFile;
  if (state_.scrub == nothingToScrub) state_.scrub = logOnly;
  return {};
}

bool CacheWriter::logIsLong() const { return database_.logPages() > longLog * logLimit_; }

bool CacheWriter::shortenLog(SQLiteDatabase::Deadline deadline) {
  const auto left = database_.checkpoint(SQLiteDatabase::Checkpoint::passive);
  if (left && *left > longLog * logLimit_) return false;
  if (database_.logPages() <= tooLongLog * logLimit_) return true;
  for (;;) {
    const auto restarted = database_.checkpoint(SQLiteDatabase::Checkpoint::restart);
    if (restarted) return *restarted == 0;
    // Gives up at once when another process brings the log into the file.
    if (!restarted.error().isBusy() || std::chrono::steady_clock::now() >= deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

SQLiteStatus CacheWriter::vacuum() {
  TRY(database_.execute("VACUUM"));
  return needsVacuum() ? writeScrub(logOnly) : SQLiteStatus();
}

SQLiteStatus CacheWriter::emptyLog() {
  const int left = TRY(database_.checkpoint(SQLiteDatabase::Checkpoint::truncate));
  if (left != 0) return tl::unexpected(SQLiteError::busy());
  return needsScrub() ? writeScrub(nothingToScrub) : SQLiteStatus();
}

SQLiteStatus CacheWriter::writeScrub(std::int64_t scrub) {
  TRY(begin(0, nullptr));
  state_.scrub = scrub;
  const auto done = commit();
  if (!done) rollback();
  return done;
}

SQLiteResult<bool> CacheWriter::isSparse() {
  const auto pages = value(pageCount);
  const auto unused = value(freePageCount);
  if (!pages) return tl::unexpected(pages.error());
  if (!unused) return tl::unexpected(unused.error());
  return *unused > 64 && *unused > *pages / 10;
}

// Sizes that no entry can have are damage.
SQLiteStatus CacheWriter::recount() {
  auto cleaned = database_.execute(
      "DELETE FROM answers WHERE id IN (SELECT id FROM uses WHERE size NOT BETWEEN 1 AND 1 << 40);"
      "DELETE FROM uses WHERE size NOT BETWEEN 1 AND 1 << 40");
  if (!cleaned) return cleaned;
  const auto bytes = database_.integer("SELECT CAST(total(size) AS INTEGER) FROM uses");
  auto clock = database_.integer("SELECT max(used) FROM uses");
  if (!bytes) return tl::unexpected(bytes.error());
  if (!clock) return tl::unexpected(clock.error());
  if (*clock < 0 || *clock >= largestClock) {
    if (auto reset = database_.execute("UPDATE uses SET used = 1"); !reset) return reset;
    clock = 1;
  }
  state_.bytes = *bytes;
  state_.clock = *clock + 1;
  return {};
}

SQLiteResult<std::int64_t> CacheWriter::value(Sql sql) {
  SQLiteStatement& statement = statements_[sql];
  const auto row = statement.step();
  const std::int64_t number = row && *row ? statement.integer(0) : 0;
  statement.reset();
  if (!row) return tl::unexpected(row.error());
  return number;
}

// A row id for one more variant; when all are taken, the least recently used one makes room.
SQLiteResult<std::int64_t> CacheWriter::freeId(const CacheKey& key) {
  SQLiteStatement& taken = statements_[selectVariants];
  taken.bind(1, key.firstId);
  taken.bind(2, key.lastId());
  std::int64_t id = key.firstId;
  for (;;) {
    const auto row = taken.step();
    if (row && *row && taken.integer(0) == id) {
      ++id;
      continue;
    }
    taken.reset();
    if (!row) return tl::unexpected(row.error());
    break;
  }
  if (id <= key.lastId()) return id;
  SQLiteStatement& oldest = statements_[selectOldestOf];
  oldest.bind(1, key.firstId);
  oldest.bind(2, key.lastId());
  const auto row = oldest.step();
  id = row && *row ? oldest.integer(0) : key.firstId;
  oldest.reset();
  if (!row) return tl::unexpected(row.error());
  if (const auto removed = removeRow(id); !removed) return tl::unexpected(removed.error());
  return id;
}

// The rows of the URL that fit the request, or all of them without one. What cannot be read counts
// as the URL's.
SQLiteResult<std::vector<std::int64_t>> CacheWriter::matching(const CacheKey& key,
                                                              VaryMatcher* request) {
  SQLiteStatement& variants = statements_[selectVariants];
  variants.bind(1, key.firstId);
  variants.bind(2, key.lastId());
  std::vector<std::int64_t> ids;
  for (;;) {
    const auto row = variants.step();
    if (!row || !*row) {
      variants.reset();
      if (!row) return tl::unexpected(row.error());
      return ids;
    }
    const auto head = CacheHead::parse(variants.blob(1));
    const bool fits =
        !head || (head->url == key.url &&
                  (request == nullptr || request->matches(head->varyNames, head->varyDigest)));
    if (fits) ids.push_back(variants.integer(0));
  }
}

// Whether there was something to remove. Only damage leaves one row of a pair without the other.
SQLiteResult<bool> CacheWriter::removeRow(std::int64_t id) {
  SQLiteStatement& answer = statements_[deleteAnswer];
  answer.bind(1, id);
  if (const auto removed = answer.run(); !removed) return tl::unexpected(removed.error());
  const bool answered = database_.changes() != 0;
  SQLiteStatement& use = statements_[deleteUse];
  use.bind(1, id);
  const auto row = use.step();
  const std::int64_t size = row && *row ? use.integer(0) : 0;
  // Only the step after the row ends the statement.
  const auto ended = row && *row ? use.step() : row;
  use.reset();
  if (!ended) return tl::unexpected(ended.error());
  if (answered != *row) return corrupt();
  state_.bytes = std::max<std::int64_t>(0, state_.bytes - size);
  changed_ = changed_ || answered;
  return answered;
}

SQLiteResult<bool> CacheWriter::isOver(std::int64_t capacity) {
  if (state_.bytes > capacity) return true;
  if (state_.bytes < capacity / 2) return false;
  const auto pages = value(pageCount);
  const auto unused = value(freePageCount);
  if (!pages) return tl::unexpected(pages.error());
  if (!unused) return tl::unexpected(unused.error());
  return (*pages - *unused) * cachePageSize > largestFile(capacity);
}

SQLiteStatus CacheWriter::limitLog(std::int64_t capacity) {
  if (capacity == logCapacity_) return {};
  const std::int64_t bytes = logLimit(capacity);
  logLimit_ = static_cast<int>(bytes / cachePageSize);
  logCapacity_ = capacity;
  return database_.execute(("PRAGMA journal_size_limit=" + std::to_string(bytes)).c_str());
}

}  // namespace paperloom::internal
