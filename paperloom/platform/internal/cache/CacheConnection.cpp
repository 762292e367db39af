#include "paperloom/platform/internal/cache/CacheConnection.h"

#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <utility>

#include "paperloom/platform/DebugLog.h"
#include "paperloom/platform/internal/base/PrivateFolders.h"
#include "paperloom/platform/internal/base/Try.h"

namespace paperloom::internal {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds shortLockWait{5};
// Between two attempts at what has failed, and between two looks whether the open file is still
// where it was.
constexpr std::chrono::milliseconds pause{100};

std::int64_t randomName() {
  std::uint64_t bits = 0;
  if (::getrandom(&bits, sizeof bits, GRND_NONBLOCK) != sizeof bits) {
    bits = static_cast<std::uint64_t>(Clock::now().time_since_epoch().count()) * 65537U +
           static_cast<std::uint64_t>(::getpid());
  }
  return static_cast<std::int64_t>(bits >> 1) + 1;
}

std::pair<std::uint64_t, std::uint64_t> identityOf(const std::filesystem::path& file) {
  struct stat info {};
  if (::lstat(file.c_str(), &info) != 0) return {};
  return {info.st_dev, info.st_ino};
}

Clock::time_point lockDeadline(bool lockedOut, Clock::time_point deadline) {
  return lockedOut ? std::min(deadline, Clock::now() + shortLockWait) : deadline;
}

SQLiteResult<CacheReader> readerOf(SQLiteResult<SQLiteDatabase> database) {
  if (!database) return tl::unexpected(database.error());
  CacheReader reader(std::move(*database));
  TRY(reader.prepare());
  return reader;
}

// It must see what the writer has just written. If not, the index that they share is damaged.
SQLiteResult<CacheReader> readerBeside(const CacheWriter& writer, const std::filesystem::path& file,
                                       Clock::time_point deadline) {
  auto reader = readerOf(connectCacheFile(file, deadline));
  if (!reader) return reader;
  const std::int64_t clock = TRY(reader->clock());
  if (clock < writer.clock()) return tl::unexpected(SQLiteError::corrupt());
  return reader;
}

}  // namespace

CacheConnection::CacheConnection(std::filesystem::path folder, CacheLedger& ledger)
    : folder_(std::move(folder)),
      file_(folder_ / "cache.sqlite"),
      name_(randomName()),
      ledger_(ledger) {}

bool CacheConnection::write(Deadline deadline, Room room, const CacheKey* key, const Work& work) {
  refused_ = false;
  for (int attempt = 0; attempt < 2; ++attempt) {
    if (!ensureWriter(deadline)) return false;
    writer_->waitForLocksUntil(lockDeadline(lockedOut_, deadline));
    if (room == Room::asLogAllows && logIsFull(deadline)) return false;
    const SQLiteStatus done = transact(key, work);
    if (done) {
      lockedOut_ = false;
      isLogLong_ = writer_->logIsOverLimit();
      if (writer_->needsScrub() && Clock::now() >= nextScrub_) scrub(Clock::now());
      return true;
    }
    writer_->rollback();
    refused_ = done.error().isRefusal();
    if (!recover(done.error(), deadline)) return false;
  }
  return false;
}

void CacheConnection::removeOutdated(Deadline deadline) {
  if (!refused_) return;
  write(deadline, Room::asLogAllows, nullptr, [](CacheWriter&) { return SQLiteStatus(); });
}

SQLiteStatus CacheConnection::transact(const CacheKey* key, const Work& work) {
  const CacheLedger::Outdated outdated = ledger_.outdated(key);
  TRY(writer_->begin(ledger_.clock(), [this](std::int64_t id) { return ledger_.lastUse(id); }));
  ledger_.noteStamp(writer_->stampBefore(), name_);
  if (outdated.all != 0) TRY(writer_->removeAll());
  for (const auto& [url, note] : outdated.urls) TRY(writer_->remove(cacheKey(url)));
  TRY(work(*writer_));
  TRY(writer_->commit());
  // Only now: until here it might not have happened.
  ledger_.noteRemoved(outdated);
  ledger_.noteWrite(writer_->writeMarks(), writer_->stored());
  ledger_.advanceClock(writer_->clock());
  return {};
}

// While the log may not grow, stores are given up, without a wait but for the first.
bool CacheConnection::logIsFull(Deadline deadline) {
  if (!writer_->logIsLong()) return false;
  if (Clock::now() < nextShortening_) return true;
  const Deadline end = lockDeadline(nextShortening_ != Clock::time_point(), deadline);
  writer_->waitForLocksUntil(end);
  const bool full = !writer_->shortenLog(end);
  nextShortening_ = full ? Clock::now() + pause : Clock::time_point();
  writer_->waitForLocksUntil(lockDeadline(lockedOut_, deadline));
  return full;
}

bool CacheConnection::recover(const SQLiteError& error, Deadline deadline) {
  if (error.isBusy()) {
    lockedOut_ = true;
    return false;
  }
  if (error.isRefusal()) return false;
  close(deadline);
  // The tables never break their own rules but by damage.
  if (error.isCorruption() || error.isConstraint()) return open(deadline, CacheContents::discard);
  return true;  // another process has replaced the tables or the file
}

// Readers are kept out only while the log is emptied: the other part may take long.
void CacheConnection::scrub(Deadline deadline) {
  // Only the first attempt waits for those who read what was removed.
  if (nextScrub_ != Clock::time_point()) deadline = Clock::now();
  nextScrub_ = Clock::now() + pause;
  writer_->waitForLocksUntil(deadline);
  if (writer_->needsVacuum() || !writer_->needsScrub()) {
    if (!writer_->vacuum()) return;
  }
  const auto end = std::max(deadline, Clock::now() + shortLockWait);
  if (!readGate_.enter(end)) return;
  const TimedGate::Hold hold(readGate_);
  writer_->waitForLocksUntil(end);
  if (writer_->emptyLog()) nextScrub_ = {};
}

void CacheConnection::scrubIfSparse(Deadline deadline) {
  if (!logIsFull(deadline) && writer_->isSparse().value_or(false)) scrub(deadline);
}

void CacheConnection::shortenLog() {
  if (!isLogLong_ || !shortening_.try_lock()) return;
  if (Clock::now() >= nextCheckpoint_) {
    isLogLong_ = false;
    auto database = connectCacheFile(file_, Clock::now());
    // SQLite knows of no log before it has read something.
    if (database && database->integer("SELECT id FROM state")) {
      static_cast<void>(database->checkpoint(SQLiteDatabase::Checkpoint::passive));
    }
    nextCheckpoint_ = Clock::now() + pause;
  }
  shortening_.unlock();
}

void CacheConnection::learnRows() {
  if (ledger_.knowsRows() || !isOpen()) return;
  const std::uint64_t begun = ledger_.beginToLearnRows();
  auto reader = anotherReader(Clock::now());
  auto ids = reader ? reader->ids() : tl::unexpected(reader.error());
  if (ids) ledger_.learnRows(begun, *std::move(ids));
}

bool CacheConnection::read(Deadline deadline, const Read& work) {
  for (int attempt = 0; attempt < 2; ++attempt) {
    std::optional<SQLiteStatus> done;
    {
      if (!readGate_.enter(deadline)) return false;
      const TimedGate::Hold hold(readGate_);
      done = tryToRead(deadline, work);
    }
    if (done && *done) return true;
    if (readLockedOut_) return false;
    if (!writeGate_.enter(deadline)) return false;
    const TimedGate::Hold hold(writeGate_);
    if (done && !done->error().isCorruption()) {
      close(deadline);  // a reader that cannot read is of no use, unlike a writer that cannot write
    } else if (done && !recover(done->error(), deadline)) {
      return false;
    }
    if (!ensureReader(deadline)) return false;
  }
  return false;
}

std::optional<SQLiteStatus> CacheConnection::tryToRead(Deadline deadline, const Read& work) {
  const auto now = Clock::now();
  const bool look = reader_ && now >= nextLook_;
  if (look) nextLook_ = now + pause;
  if (!reader_ || (look && wasMoved())) return std::nullopt;
  reader_->waitForLocksUntil(lockDeadline(readLockedOut_, deadline));
  SQLiteStatus done = work(*reader_);
  readLockedOut_ = !done && done.error().isBusy();
  if (done) noticeOthers(deadline);
  return done;
}

SQLiteResult<CacheReader> CacheConnection::anotherReader(Deadline deadline) {
  auto reader = readerOf(connectCacheFile(file_, deadline));
  return reader ? std::move(reader) : readerOf(openCacheFileToRead(file_, deadline));
}

std::uint64_t CacheConnection::generation(Deadline deadline) {
  if (readGate_.enter(deadline)) {
    const TimedGate::Hold hold(readGate_);
    if (reader_) noticeOthers(deadline);
  }
  return ledger_.generation();
}

void CacheConnection::noticeOthers(Deadline deadline) {
  reader_->waitForLocksUntil(lockDeadline(readLockedOut_, deadline));
  if (wasReplaced()) {
    nextLook_ = {};
    ledger_.startGeneration();
    return;
  }
  const SQLiteLogMark mark = reader_->logMark();
  if (ledger_.isCurrent(mark)) return;
  const auto version = reader_->dataVersion();
  if (!version) return;
  if (*version != dataVersion_) {
    const auto stamp = reader_->stamp();
    if (!stamp) return;
    ledger_.noteStamp(*stamp, name_);
    dataVersion_ = *version;
  }
  ledger_.noteCurrent(mark);
}

bool CacheConnection::isOpen() {
  if (!readGate_.tryEnter()) return false;
  const TimedGate::Hold hold(readGate_);
  return reader_.has_value();
}

bool CacheConnection::isCurrent() {
  if (!readGate_.tryEnter()) return false;
  const TimedGate::Hold hold(readGate_);
  return reader_ && Clock::now() < nextLook_ && ledger_.isCurrent(reader_->logMark());
}

bool CacheConnection::ensureWriter(Deadline deadline) {
  const bool moved = wasMoved();
  if (writer_ && !moved) return true;
  if (Clock::now() < nextAttempt_) return false;
  if (hasReader() && !moved && ::access(file_.c_str(), W_OK) != 0) return false;
  close(deadline);
  return open(lockDeadline(lockedOut_, deadline), CacheContents::keep) && writer_;
}

bool CacheConnection::ensureReader(Deadline deadline) {
  if (hasReader() && !wasMoved()) return true;
  close(deadline);
  if (Clock::now() < nextAttempt_) return false;
  return open(lockDeadline(lockedOut_, deadline), CacheContents::keep);
}

bool CacheConnection::open(Deadline deadline, CacheContents contents) {
  nextAttempt_ = Clock::now() + pause;
  createPrivateFolders(folder_);
  if (!isOwnFolder(folder_)) {
    say("the cache stays in memory: its folder is none of this user's");
    return false;
  }
  auto writer = CacheWriter::open(file_, deadline, contents, name_);
  auto reader =
      writer ? readerBeside(*writer, file_, deadline) : tl::unexpected(SQLiteError(writer.error()));
  if (reader) return place(std::move(*writer), std::move(*reader), deadline);
  if (reader.error().isForeign()) {
    say("the cache stays in memory: what lies at its place is no file of this user's");
    return false;
  }
  if (reader.error().isBusy()) {
    lockedOut_ = true;
    return false;
  }
  if (reader.error().isDamage() && contents != CacheContents::replace) {
    const bool emptied = contents == CacheContents::discard;
    return open(deadline, emptied ? CacheContents::replace : CacheContents::discard);
  }
  return openToRead(deadline);
}

bool CacheConnection::openToRead(Deadline deadline) {
  auto reader = readerOf(openCacheFileToRead(file_, deadline));
  if (!reader) {
    say("the cache stays in memory: its file cannot be used");
    return false;
  }
  if (!place(std::nullopt, std::move(*reader), deadline)) return false;
  say("the cache's file cannot be written and is only read");
  nextAttempt_ = Clock::now() + pause;
  return true;
}

bool CacheConnection::place(std::optional<CacheWriter> writer, CacheReader reader,
                            Deadline deadline) {
  if (!readGate_.enter(deadline)) return false;
  const TimedGate::Hold hold(readGate_);
  if (writer) {
    if (!openedBefore_) ledger_.knowStamp(writer->stampBefore());
    openedBefore_ = true;
    ledger_.advanceClock(writer->clock());
  }
  ledger_.noteCurrent({});
  ledger_.forgetRows();
  if (writer && writer->usage() == 0) ledger_.learnRows(ledger_.beginToLearnRows(), {});
  identity_ = identityOf(file_);
  dataVersion_ = -1;
  writer_ = std::move(writer);
  reader_ = std::move(reader);
  nextAttempt_ = {};
  said_ = nullptr;
  return true;
}

void CacheConnection::close(Deadline deadline) {
  writer_.reset();
  if (!readGate_.enter(deadline)) return;
  const TimedGate::Hold hold(readGate_);
  reader_.reset();
}

bool CacheConnection::wasReplaced() {
  const auto now = Clock::now();
  if (now < nextLook_) return false;
  nextLook_ = now + pause;
  const auto identity = identityOf(file_);
  return identity.second != 0 && identity != identity_;
}

bool CacheConnection::wasMoved() const { return identityOf(file_) != identity_; }

// Once for each change, since attempts are repeated.
void CacheConnection::say(const char* state) {
  if (said_ == state) return;
  said_ = state;
  DebugLog::write(state);
}

}  // namespace paperloom::internal
