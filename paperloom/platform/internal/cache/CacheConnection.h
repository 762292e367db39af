#pragma once

#include <atomic>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <utility>

#include "paperloom/platform/Mutex.h"
#include "paperloom/platform/internal/base/TimedGate.h"
#include "paperloom/platform/internal/cache/CacheLedger.h"
#include "paperloom/platform/internal/cache/CacheReader.h"
#include "paperloom/platform/internal/cache/CacheWriter.h"

namespace paperloom::internal {

// The connections to one cache file: opens it when it is first needed, and again after trouble.
// Safe from any thread. No call waits for locks beyond its deadline; what fails is a miss.
//
// - Readers and writers have a connection and a gate each, so that a reader never waits while a
//   writer waits for another process. The write gate is entered first; both are held to put
//   connections in place or to take them away, one of them to use its own. Gates are held across
//   disk work, and waited for no longer than until the caller's deadline: whoever gives up has a
//   miss, or notes in the ledger what is outdated.
// - A reader is there whenever a writer is. A reader alone: the file cannot be written.
// - What is proven to be damaged, by whichever connection, is emptied and the work tried again.
//   A lock, a full disk, a missing permission prove nothing: the work fails, the file stays.
// - After a wait for a lock in vain, later calls hardly wait until one succeeds: a process that
//   holds the lock for long slows one call down, not every one.
// - Everything happens in transactions: a crash leaves what was committed, and nothing half.
class CacheConnection {
 public:
  using Deadline = SQLiteDatabase::Deadline;
  using Work = std::function<SQLiteStatus(CacheWriter&)>;
  using Read = std::function<SQLiteStatus(CacheReader&)>;

  CacheConnection(std::filesystem::path folder, CacheLedger& ledger);

  const std::filesystem::path& file() const { return file_; }

  TimedGate& writeGate() PAPERLOOM_THREAD_SAFETY(lock_returned(writeGate_)) { return writeGate_; }

  enum class Room {
    asLogAllows,  // given up while the log is full
    always,
  };
  // Removes what the ledger has as outdated, first what `key` names, then does the work, in one
  // transaction.
  bool write(Deadline deadline, Room room, const CacheKey* key, const Work& work)
      PAPERLOOM_REQUIRES(writeGate_);
  // After a failed write(): removes what is outdated, if there is a chance.
  void removeOutdated(Deadline deadline) PAPERLOOM_REQUIRES(writeGate_);
  // Gives unused pages back to the file system, and leaves nothing of what was removed.
  void scrub(Deadline deadline) PAPERLOOM_REQUIRES(writeGate_);
  void scrubIfSparse(Deadline deadline) PAPERLOOM_REQUIRES(writeGate_);

  // Bring the log into the file if it is longer than it should be; tell the ledger which rows there
  // are if it does not know. On a connection of their own: they take as long as the disk does, but
  // hold up nobody who reads or writes meanwhile.
  void shortenLog();
  void learnRows();

  bool read(Deadline deadline, const Read& work);
  // A connection of its own, for what takes long.
  SQLiteResult<CacheReader> anotherReader(Deadline deadline);
  // The ledger's, after a look at what others have done to the file.
  std::uint64_t generation(Deadline deadline);
  // Whether nobody else can have changed the file since somebody last looked. Touches no disk and
  // waits for nobody; false where it cannot be told so.
  bool isCurrent();

 private:
  using Clock = std::chrono::steady_clock;

  SQLiteStatus transact(const CacheKey* key, const Work& work) PAPERLOOM_REQUIRES(writeGate_);
  bool isOpen();
  bool logIsFull(Deadline deadline) PAPERLOOM_REQUIRES(writeGate_);
  // Whether another attempt makes sense.
  bool recover(const SQLiteError& error, Deadline deadline) PAPERLOOM_REQUIRES(writeGate_);
  bool ensureWriter(Deadline deadline) PAPERLOOM_REQUIRES(writeGate_);
  bool ensureReader(Deadline deadline) PAPERLOOM_REQUIRES(writeGate_);
  bool open(Deadline deadline, CacheContents contents) PAPERLOOM_REQUIRES(writeGate_);
  bool openToRead(Deadline deadline) PAPERLOOM_REQUIRES(writeGate_);
  bool place(std::optional<CacheWriter> writer, CacheReader reader, Deadline deadline)
      PAPERLOOM_REQUIRES(writeGate_);
  void close(Deadline deadline) PAPERLOOM_REQUIRES(writeGate_);
  // What the reader says; nothing where it could not be asked.
  std::optional<SQLiteStatus> tryToRead(Deadline deadline, const Read& work)
      PAPERLOOM_REQUIRES(readGate_);
  void noticeOthers(Deadline deadline) PAPERLOOM_REQUIRES(readGate_);
  // Whether another file lies now where the open one was.
  bool wasReplaced() PAPERLOOM_REQUIRES(readGate_);
  // Unchecked, since one of the gates is enough, whichever: both are held for a change.
  bool wasMoved() const PAPERLOOM_UNCHECKED_LOCKING;
  bool hasReader() const PAPERLOOM_UNCHECKED_LOCKING { return reader_.has_value(); }
  void say(const char* state) PAPERLOOM_REQUIRES(writeGate_);

  const std::filesystem::path folder_;
  const std::filesystem::path file_;
  const std::int64_t name_;  // of this process as a writer
  CacheLedger& ledger_;
  std::atomic<bool> lockedOut_ = false;
  std::atomic<bool> readLockedOut_ = false;
  std::atomic<bool> isLogLong_ = false;
  Mutex shortening_;
  Clock::time_point nextCheckpoint_ PAPERLOOM_GUARDED_BY(shortening_){};

  TimedGate writeGate_;
  std::optional<CacheWriter> writer_ PAPERLOOM_GUARDED_BY(writeGate_);
  Clock::time_point nextAttempt_ PAPERLOOM_GUARDED_BY(writeGate_){};
  Clock::time_point nextScrub_ PAPERLOOM_GUARDED_BY(writeGate_){};
  // Of a log that must not grow.
  Clock::time_point nextShortening_ PAPERLOOM_GUARDED_BY(writeGate_){};
  bool openedBefore_ PAPERLOOM_GUARDED_BY(writeGate_) = false;
  // The last write() failed for want of room.
  bool refused_ PAPERLOOM_GUARDED_BY(writeGate_) = false;
  const char* said_ PAPERLOOM_GUARDED_BY(writeGate_) = nullptr;  // in the debug log

  TimedGate readGate_ PAPERLOOM_ACQUIRED_AFTER(writeGate_);
  std::optional<CacheReader> reader_ PAPERLOOM_GUARDED_BY(readGate_);
  // Device and inode of the open file.
  std::pair<std::uint64_t, std::uint64_t> identity_ PAPERLOOM_GUARDED_BY(readGate_){};
  std::int64_t dataVersion_ PAPERLOOM_GUARDED_BY(readGate_) = -1;
  // Whether the file is still where it was.
  Clock::time_point nextLook_ PAPERLOOM_GUARDED_BY(readGate_){};
};

}  // namespace paperloom::internal
