#include "paperloom/platform/internal/cache/CacheWriter.h"

#include <algorithm>
#include <chrono>
#include <string>
#include <thread>
#include <tuple>
#include <utility>

#include "paperloom/platform/internal/base/Checksum.h"
#include "paperloom/platform/internal/base/Try.h"
#include "paperloom/platform/internal/sqlite/SQLiteCall.h"

namespace paperloom::internal {
namespace {

// Uses written while one answer makes room for itself.
constexpr int mostTouches = 2'000;
constexpr std::int64_t largestClock = std::int64_t{1} << 62;

// SQLite's pages hold more than the entries' bytes; this much more, and the tables themselves.
std::int64_t largestFile(std::int64_t capacity) { return capacity + capacity / 10 + 65536; }

tl::unexpected<SQLiteError> corrupt() { return tl::unexpected(SQLiteError::corrupt()); }

constexpr std::int64_t leastLogLimit = 65536;
// In bytes. The log counts as well when there is little room for it.
std::int64_t logLimit(std::int64_t capacity) {
  return std::clamp<std::int64_t>(capacity / 20, leastLogLimit, 8388608);
}
// Multiples of it.
constexpr int longLog = 4;
constexpr int tooLongLog = 16;

// The values of state.scrub.
constexpr std::int64_t nothingToScrub = 0;
constexpr std::int64_t wholeFile = 1;
constexpr std::int64_t logOnly = 2;

using Number = std::tuple<std::int64_t>;

}  // namespace

struct CacheWriter::Sql {
  explicit Sql(SQLiteDatabase opened) : database(std::move(opened)) {}

  SQLiteDatabase database;
  SQLiteCall<void()> begin{database, "BEGIN IMMEDIATE"};
  SQLiteCall<void()> commit{database, "COMMIT"};
  SQLiteCall<void()> rollback{database, "ROLLBACK"};
  SQLiteCall<std::tuple<std::int64_t, std::int64_t, std::int64_t, std::int64_t, std::int64_t>()>
      state{database, "SELECT bytes, clock, writer, changes, scrub FROM state WHERE id = 1"};
  SQLiteCall<void(std::int64_t, std::int64_t, std::int64_t, std::int64_t, std::int64_t)> writeState{
      database,
      "UPDATE state SET bytes = ?1, clock = ?2, writer = ?3, changes = ?4, scrub = ?5 "
      "WHERE id = 1"};
  SQLiteCall<std::tuple<std::int64_t, SQLiteBlob>(std::int64_t, std::int64_t)> variants{
      database, "SELECT id, head FROM answers WHERE id BETWEEN ?1 AND ?2"};
  SQLiteCall<void(std::int64_t, std::int64_t, SQLiteBlob, SQLiteBlob)> insertAnswer{
      database, "INSERT INTO answers(id, sum, head, body) VALUES(?1, ?2, ?3, ?4)"};
  SQLiteCall<void(std::int64_t, std::int64_t, std::int64_t)> insertUse{
      database, "INSERT INTO uses(id, size, used) VALUES(?1, ?2, ?3)"};
  SQLiteCall<Number(std::int64_t)> sumOf{database, "SELECT sum FROM answers WHERE id = ?1"};
  SQLiteCall<void(std::int64_t)> deleteAnswer{database, "DELETE FROM answers WHERE id = ?1"};
  SQLiteCall<Number(std::int64_t)> deleteUse{database,
                                             "DELETE FROM uses WHERE id = ?1 RETURNING size"};
  SQLiteCall<void(std::int64_t, std::int64_t)> touch{
      database, "UPDATE uses SET used = ?2 WHERE id = ?1 AND used < ?2"};
  SQLiteCall<std::tuple<std::int64_t, std::int64_t>()> oldest{
      database, "SELECT id, used FROM uses ORDER BY used LIMIT 1"};
  SQLiteCall<Number(std::int64_t, std::int64_t)> oldestOf{
      database, "SELECT id FROM uses WHERE id BETWEEN ?1 AND ?2 ORDER BY used LIMIT 1"};
  SQLiteCall<Number()> pages{database, "PRAGMA page_count"};
  SQLiteCall<Number()> unusedPages{database, "PRAGMA freelist_count"};
};

CacheWriter::CacheWriter(SQLiteDatabase database, std::int64_t name)
    : sql_(std::make_unique<Sql>(std::move(database))), writer_(name) {}

CacheWriter::~CacheWriter() = default;
CacheWriter::CacheWriter(CacheWriter&&) noexcept = default;
CacheWriter& CacheWriter::operator=(CacheWriter&&) noexcept = default;

SQLiteResult<CacheWriter> CacheWriter::open(const std::filesystem::path& file,
                                            SQLiteDatabase::Deadline deadline,
                                            CacheContents contents, std::int64_t name) {
  SQLiteDatabase database = TRY(openCacheFile(file, deadline, contents));
  CacheWriter writer(std::move(database), name);
  writer.pageSize_ = TRY(writer.sql_->database.integer("PRAGMA page_size"));
  if (writer.pageSize_ < 512) return corrupt();
  writer.logLimit_ = leastLogLimit / writer.pageSize_;
  const auto counted = writer.countAnew();
  if (counted) return writer;
  writer.rollback();
  return tl::unexpected(counted.error());
}

SQLiteStatus CacheWriter::countAnew() {
  TRY(begin(0, nullptr));
  TRY(recount());
  state_.clock = std::max(state_.clock, stateBefore_.clock + 1);
  TRY(writeState());
  return commit();
}

void CacheWriter::waitForLocksUntil(SQLiteDatabase::Deadline deadline) {
  sql_->database.waitForLocksUntil(deadline);
}

SQLiteStatus CacheWriter::begin(std::int64_t clock, LastUse lastUse) {
  TRY(sql_->begin());
  changed_ = false;
  stored_.clear();
  lastUse_ = std::move(lastUse);
  totalBefore_ = sql_->database.totalChanges();
  const auto read = readState();
  if (!read) rollback();
  state_.clock = std::max(state_.clock, clock);
  return read;
}

SQLiteStatus CacheWriter::readState() {
  const auto row = TRY(sql_->state());
  if (!row) return corrupt();
  const auto& [bytes, clock, writer, changes, scrub] = *row;
  state_ = {bytes, clock, changes, scrub};
  stateBefore_ = state_;
  before_ = {writer, changes};
  const bool sane = bytes >= 0 && clock > 0 && clock < largestClock;
  return sane ? SQLiteStatus() : recount();
}

SQLiteStatus CacheWriter::commit() {
  const bool same = !changed_ && sql_->database.totalChanges() == totalBefore_ &&
                    state_.bytes == stateBefore_.bytes && state_.scrub == stateBefore_.scrub;
  if (same) return sql_->rollback();
  // Wraps around like an unsigned number whatever a damaged file says.
  if (changed_) {
    state_.changes = static_cast<std::int64_t>(static_cast<std::uint64_t>(state_.changes) + 1);
  }
  TRY(writeState());
  return sql_->commit();
}

SQLiteWriteMarks CacheWriter::writeMarks() const { return lastWriteMarks(sql_->database.handle()); }

SQLiteStatus CacheWriter::writeState() {
  return sql_->writeState(state_.bytes, state_.clock, changed_ ? writer_ : before_.writer,
                          state_.changes, state_.scrub);
}

void CacheWriter::rollback() { static_cast<void>(sql_->rollback()); }

SQLiteResult<std::int64_t> CacheWriter::store(const CacheKey& key, VaryMatcher& request,
                                              const CacheEntry& entry, std::int64_t capacity) {
  TRY(limitLog(capacity));
  const Variants variants = TRY(variantsOf(key, &request));
  TRY(removeEach(variants.fitting));
  const std::int64_t id = TRY(freeId(key, variants));
  const std::string head = encodeHead(key, entry.vary, entry.response);
  const auto sum = static_cast<std::int64_t>(checksum(head, static_cast<std::uint64_t>(id)));
  TRY(sql_->insertAnswer(id, sum, SQLiteBlob{head}, SQLiteBlob{entry.response.data.view()}));
  TRY(sql_->insertUse(id, entry.size, ++state_.clock));
  // Two tables in one place would overwrite each other.
  const auto kept = TRY(sql_->sumOf(id));
  if (kept != Number(sum)) return corrupt();
  state_.bytes += entry.size;
  stored_.push_back(id);
  changed_ = true;
  TRY(evict(capacity));
  return id;
}

SQLiteStatus CacheWriter::removeMatching(const CacheKey& key, VaryMatcher& request) {
  const Variants variants = TRY(variantsOf(key, &request));
  return removeEach(variants.fitting);
}

SQLiteStatus CacheWriter::remove(const CacheKey& key) {
  const Variants variants = TRY(variantsOf(key, nullptr));
  return removeEach(variants.fitting);
}

SQLiteStatus CacheWriter::removeEach(const std::vector<std::int64_t>& ids) {
  for (const std::int64_t id : ids) TRY(removeRow(id));
  return {};
}

SQLiteStatus CacheWriter::removeDamaged(const std::vector<CacheReader::Damaged>& rows) {
  // A flipped bit costs one entry. Pages that belong to two would cost one entry after the other.
  TRY(checkStructure());
  for (const CacheReader::Damaged& row : rows) {
    const auto found = TRY(sql_->sumOf(row.id));
    if (found != Number(row.sum)) continue;  // somebody has stored anew meanwhile
    TRY(removeRow(row.id));
  }
  return {};
}

// Once for each opening, since it reads the whole file.
SQLiteStatus CacheWriter::checkStructure() {
  if (structureChecked_) return {};
  SQLiteStatement check = TRY(sql_->database.prepare("PRAGMA quick_check(1)"));
  const bool row = TRY(check.step());
  if (!row || check.text(0) != "ok") return corrupt();
  structureChecked_ = true;
  return {};
}

SQLiteStatus CacheWriter::touch(std::int64_t id, std::int64_t clock) {
  return sql_->touch(id, clock);
}

SQLiteStatus CacheWriter::evict(std::int64_t capacity) {
  // More than twice the capacity is either a capacity just lowered or a damaged counter.
  if (state_.bytes / 2 > capacity) TRY(recount());
  for (int touches = 0;;) {
    const bool over = TRY(isOver(capacity));
    if (!over) return {};
    const auto oldest = TRY(sql_->oldest());
    if (!oldest) return corrupt();  // nothing is left, and still it is too much
    const auto [id, used] = *oldest;
    const std::int64_t usedSince = lastUse_ && touches < mostTouches ? lastUse_(id) : 0;
    if (usedSince > used) {
      ++touches;
      TRY(sql_->touch(id, usedSince));
      continue;
    }
    const bool removed = TRY(removeRow(id));
    if (!removed) return corrupt();  // the index names what the tables lack
  }
}

SQLiteStatus CacheWriter::removeAll() {
  const std::int64_t before = sql_->database.totalChanges();
  TRY(sql_->database.execute("DELETE FROM answers; DELETE FROM uses"));
  const auto unused = TRY(sql_->unusedPages());
  changed_ = changed_ || sql_->database.totalChanges() != before;
  state_.bytes = 0;
  // What was removed earlier may be left there as well.
  if (unused != Number(0)) state_.scrub = wholeFile;
  if (state_.scrub == nothingToScrub) state_.scrub = logOnly;
  return {};
}

bool CacheWriter::logIsOverLimit() const { return sql_->database.logPages() > logLimit_; }

bool CacheWriter::logIsLong() const { return sql_->database.logPages() > longLog * logLimit_; }

bool CacheWriter::shortenLog(SQLiteDatabase::Deadline deadline) {
  using Checkpoint = SQLiteDatabase::Checkpoint;
  const auto left = sql_->database.checkpoint(Checkpoint::passive);
  if (left && *left > longLog * logLimit_) return false;
  if (sql_->database.logPages() <= tooLongLog * logLimit_) return true;
  for (;;) {
    const auto restarted = sql_->database.checkpoint(Checkpoint::restart);
    if (restarted) return *restarted == 0;
    // Gives up at once when another process brings the log into the file.
    if (!restarted.error().isBusy() || std::chrono::steady_clock::now() >= deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

bool CacheWriter::needsScrub() const { return state_.scrub != nothingToScrub; }

bool CacheWriter::needsVacuum() const { return state_.scrub == wholeFile; }

SQLiteStatus CacheWriter::vacuum() {
  TRY(sql_->database.execute("VACUUM"));
  return needsVacuum() ? writeScrub(logOnly) : SQLiteStatus();
}

SQLiteStatus CacheWriter::emptyLog() {
  const int left = TRY(sql_->database.checkpoint(SQLiteDatabase::Checkpoint::truncate));
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
  const auto pages = TRY(sql_->pages());
  const auto unused = TRY(sql_->unusedPages());
  if (!pages || !unused) return corrupt();
  return std::get<0>(*unused) > 64 && std::get<0>(*unused) > std::get<0>(*pages) / 10;
}

// Sizes that no entry can have are damage.
SQLiteStatus CacheWriter::recount() {
  SQLiteDatabase& database = sql_->database;
  TRY(database.execute(
      "DELETE FROM answers WHERE id IN (SELECT id FROM uses WHERE size NOT BETWEEN 1 AND 1 << 40);"
      "DELETE FROM uses WHERE size NOT BETWEEN 1 AND 1 << 40"));
  state_.bytes = TRY(database.integer("SELECT CAST(total(size) AS INTEGER) FROM uses"));
  std::int64_t clock = TRY(database.integer("SELECT max(used) FROM uses"));
  if (clock < 0 || clock >= largestClock) {
    TRY(database.execute("UPDATE uses SET used = 1"));
    clock = 1;
  }
  state_.clock = clock + 1;
  return {};
}

// A row id for one more variant, once those that fit are gone; when all are taken, the least
// recently used one makes room.
SQLiteResult<std::int64_t> CacheWriter::freeId(const CacheKey& key, const Variants& variants) {
  if (!variants.fitting.empty()) return variants.fitting.front();
  std::int64_t id = key.firstId;
  for (const std::int64_t taken : variants.others) id += taken == id ? 1 : 0;
  if (id <= key.lastId()) return id;
  const auto oldest = TRY(sql_->oldestOf(key.firstId, key.lastId()));
  if (!oldest) return corrupt();
  TRY(removeRow(std::get<0>(*oldest)));
  return std::get<0>(*oldest);
}

// Without a request all of the URL's rows fit. What cannot be read counts as the URL's and fits.
SQLiteResult<CacheWriter::Variants> CacheWriter::variantsOf(const CacheKey& key,
                                                            VaryMatcher* request) {
  Variants variants;
  const auto look = [&](std::int64_t id, SQLiteBlob bytes) {
    const auto head = CacheHead::parse(bytes.bytes);
    const bool fits =
        !head || (head->url == key.url &&
                  (request == nullptr || request->matches(head->varyNames, head->varyDigest)));
    (fits ? variants.fitting : variants.others).push_back(id);
  };
  TRY(sql_->variants.forEach(look, key.firstId, key.lastId()));
  return variants;
}

// Whether there was something to remove. Only damage leaves one row of a pair without the other.
SQLiteResult<bool> CacheWriter::removeRow(std::int64_t id) {
  TRY(sql_->deleteAnswer(id));
  const bool answered = sql_->database.changes() != 0;
  const auto size = TRY(sql_->deleteUse(id));
  if (answered != size.has_value()) return corrupt();
  if (size) state_.bytes = std::max<std::int64_t>(0, state_.bytes - std::get<0>(*size));
  changed_ = changed_ || answered;
  return answered;
}

SQLiteResult<bool> CacheWriter::isOver(std::int64_t capacity) {
  if (state_.bytes > capacity) return true;
  if (state_.bytes < capacity / 2) return false;
  const auto pages = TRY(sql_->pages());
  const auto unused = TRY(sql_->unusedPages());
  if (!pages || !unused) return corrupt();
  return (std::get<0>(*pages) - std::get<0>(*unused)) * pageSize_ > largestFile(capacity);
}

SQLiteStatus CacheWriter::limitLog(std::int64_t capacity) {
  if (capacity == logCapacity_) return {};
  const std::int64_t bytes = logLimit(capacity);
  logLimit_ = bytes / pageSize_;
  logCapacity_ = capacity;
  return sql_->database.execute(("PRAGMA journal_size_limit=" + std::to_string(bytes)).c_str());
}

}  // namespace paperloom::internal
