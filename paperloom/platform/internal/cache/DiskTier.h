#pragma once

#include <atomic>
#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "paperloom/platform/internal/base/TimedGate.h"
#include "paperloom/platform/internal/cache/CacheReader.h"
#include "paperloom/platform/internal/cache/CacheWriter.h"

namespace paperloom::internal {

class MemoryTier;

// One cache file, shared by every cache on its path in this process: it opens the file when it is
// first needed, opens it again after trouble, and tells the memories above it what is outdated.
// Safe from any thread. No call waits longer than 250 ms for locks; what fails is a miss.
//
// Readers and writers have a connection each, so that a reader never waits while a writer waits
// for another process. After a wait in vain, later calls hardly wait until one
// succeeds: a process that holds the lock for long slows one call down, not every one.
class DiskTier {
 public:
  // The tier of that folder in this process.
  static std::shared_ptr<DiskTier> shared(const std::filesystem::path& folder);

  explicit DiskTier(std::filesystem::path folder);
  // Writes the uses that were only noted so far.
  ~DiskTier();
  DiskTier(const DiskTier&) = delete;
  DiskTier& operator=(const DiskTier&) = delete;

  // A memory above this tier, from then on told about what is stored and removed through others.
  void attach(MemoryTier* memory);
  void detach(MemoryTier* memory);

  // Another number than before when another process may have changed something meanwhile.
  std::uint64_t generation();

  std::optional<CacheEntry> find(const CacheKey& key, VaryMatcher& request, const URL& url);
  // Counts a use of the row. The file learns of it when the row would be evicted, or in the end.
  void noteUse(std::int64_t id);

  // `own` is the memory of the cache that asks. `then` brings it up to date: it is called exactly
  // once, in the order of the writes to disk, with the id of the row, 0 when nothing was stored.
  using Then = std::function<void(std::int64_t id)>;
  void store(const CacheKey& key, VaryMatcher& request, const CacheEntry& entry,
             std::int64_t capacity, const MemoryTier* own, const Then& then);
  void removeMatching(const CacheKey& key, VaryMatcher& request, const MemoryTier* own,
                      const Then& then);
  void remove(const CacheKey& key, const MemoryTier* own, const Then& then);
  void removeAll(const MemoryTier* own, const Then& then);
  // Evicts down to the capacity, and gives the room back to the file system if it is much.
  void trim(std::int64_t capacity);

  std::int64_t usage();
  std::vector<CacheEntry> entries();
  const std::filesystem::path& file() const { return file_; }

 private:
  using Clock = std::chrono::steady_clock;
  using Work = std::function<SQLiteStatus(CacheWriter&)>;
  using Read = std::function<SQLiteStatus(CacheReader&)>;

  bool write(Clock::time_point deadline, const Work& work);
  bool tryWrite(Clock::time_point deadline, const Work& work);
  SQLiteStatus transact(const Work& work);
  bool recover(const SQLiteError& error, Clock::time_point deadline);
  bool read(const Read& work);

  bool ensureOpen(Clock::time_point deadline);
  bool open(Clock::time_point deadline, CacheContents contents);
  void close();
  bool wasMoved() const;
  bool wasReplaced();
  Clock::time_point lockDeadline(Clock::time_point deadline) const;
  void scrub(Clock::time_point deadline);
  void noteStamp(const CacheStamp& stamp);
  std::int64_t lastUse(std::int64_t id);
  SQLiteStatus writeUses(CacheWriter& writer);
  void dropDamaged(const std::vector<CacheReader::Damaged>& rows);
  void tellOthers(const MemoryTier* own, const std::function<void(MemoryTier&)>& tell);
  bool isOutdated(const CacheKey& key);

  const std::filesystem::path folder_;
  const std::filesystem::path file_;
  const std::int64_t name_;  // of this tier as a writer
  std::atomic<bool> lockedOut_ = false;

  // The write gate is entered first. Both are held to replace the reader.
  TimedGate writeGate_;
  std::optional<CacheWriter> writer_;
  Clock::time_point nextAttempt_{};
  Clock::time_point nextScrub_{};
  std::pair<std::uint64_t, std::uint64_t> identity_{};  // device and inode of the open file
  bool openedBefore_ = false;

  TimedGate readGate_;
  std::optional<CacheReader> reader_;
  std::int64_t dataVersion_ = -1;
  Clock::time_point nextLook_{};  // whether the file is still where it was

  std::mutex mutex_;  // for what follows; held for moments only
  std::uint64_t generation_ = 0;
  CacheStamp foreign_;
  std::vector<MemoryTier*> memories_;
  std::unordered_map<std::int64_t, std::int64_t> uses_;  // row id to the clock of its last use
  std::int64_t clock_ = 0;
  // What could not be removed from the file yet, and must not be served.
  std::unordered_set<std::string> outdated_;
  int allOutdated_ = 0;  // how often everything was to be removed
};

}  // namespace paperloom::internal
