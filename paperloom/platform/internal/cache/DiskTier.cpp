#include "paperloom/platform/internal/cache/DiskTier.h"

#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <map>
#include <utility>

#include "paperloom/platform/internal/base/PrivateFolders.h"
#include "paperloom/platform/internal/cache/MemoryTier.h"

namespace paperloom::internal {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds lockWait{250};
constexpr std::chrono::milliseconds shortLockWait{5};
// Between two attempts at what has failed, and between two looks whether the open file is still
// where it was.
constexpr std::chrono::milliseconds pause{100};
// Uses noted in memory, and those of them that are worth writing in the end.
constexpr std::size_t mostUses = 65'536;
constexpr std::size_t mostWrittenUses = 4'096;
constexpr std::size_t mostOutdated = 10000;

// SQLite's primary result codes.
constexpr int ioError = 10;
constexpr int outOfMemory = 7;
constexpr int diskFull = 13;
constexpr int tooBig = 18;
constexpr int constraint = 19;

Clock::time_point inAWhile() { return Clock::now() + lockWait; }

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
  if (::stat(file.c_str(), &info) != 0) return {};
  return {info.st_dev, info.st_ino};
}

}  // namespace

std::shared_ptr<DiskTier> DiskTier::shared(const std::filesystem::path& folder) {
  static auto* mutex = new std::mutex;
  static auto* tiers = new std::map<std::filesystem::path, std::weak_ptr<DiskTier>>;
  createPrivateFolders(folder);
  std::error_code error;
  auto path = std::filesystem::weakly_canonical(folder, error);
  if (error) path = folder.lexically_normal();
  const std::lock_guard lock(*mutex);
  std::erase_if(*tiers, [](const auto& each) { return each.second.expired(); });
  auto tier = (*tiers)[path].lock();
  if (!tier) {
    tier = std::make_shared<DiskTier>(path);
    (*tiers)[path] = tier;
  }
  return tier;
}

DiskTier::DiskTier(std::filesystem::path folder)
    : folder_(std::move(folder)), file_(folder_ / "cache.sqlite"), name_(randomName()) {}

DiskTier::~DiskTier() {
  bool noted = false;
  {
    const std::lock_guard lock(mutex_);
    noted = !uses_.empty() || !outdated_.empty() || allOutdated_ != 0;
  }
  if (noted) write(inAWhile(), [this](CacheWriter& writer) { return writeUses(writer); });
}

void DiskTier::attach(MemoryTier* memory) {
  const std::lock_guard lock(mutex_);
  memories_.push_back(memory);
}

void DiskTier::detach(MemoryTier* memory) {
  const std::lock_guard lock(mutex_);
  std::erase(memories_, memory);
}

std::uint64_t DiskTier::generation() {
  const auto end = inAWhile();
  const TimedGate::Hold hold(readGate_, end);
  if (hold && reader_) {
    reader_->waitForLocksUntil(end);
    if (wasReplaced()) {
      nextLook_ = {};
      const std::lock_guard lock(mutex_);
      return ++generation_;
    }
    const auto version = reader_->dataVersion();
    if (version && *version != dataVersion_) {
      if (const auto stamp = reader_->stamp()) {
        noteStamp(*stamp);
        dataVersion_ = *version;
      }
    }
  }
  const std::lock_guard lock(mutex_);
  return generation_;
}

std::optional<CacheEntry> DiskTier::find(const CacheKey& key, VaryMatcher& request,
                                         const URL& url) {
  if (isOutdated(key)) return std::nullopt;
  CacheReader::Found found;
  read([&](CacheReader& reader) -> SQLiteStatus {
    auto result = reader.find(key, request, url);
    if (!result) return tl::unexpected(result.error());
    found = std::move(*result);
    return {};
  });
  if (!found.damaged.empty()) dropDamaged(found.damaged);
  if (found.entry) noteUse(found.entry->id);
  return std::move(found.entry);
}

void DiskTier::noteUse(std::int64_t id) {
  if (id == 0) return;
  const std::lock_guard lock(mutex_);
  // A process that only reads, and so much, can lose track of some uses.
  if (uses_.size() >= mostUses) uses_.clear();
  uses_[id] = ++clock_;
}

void DiskTier::store(const CacheKey& key, VaryMatcher& request, const CacheEntry& entry,
                     std::int64_t capacity, const MemoryTier* own, const Then& then) {
  const auto end = inAWhile();
  const TimedGate::Hold hold(writeGate_, end);
  std::int64_t id = 0;
  const bool stored = hold && tryWrite(end, [&](CacheWriter& writer) -> SQLiteStatus {
                        const auto row = writer.store(key, request, entry, capacity);
                        if (!row) return tl::unexpected(row.error());
                        id = *row;
                        return {};
                      });
  then(stored ? id : 0);
  tellOthers(own, [&](MemoryTier& memory) { memory.remove(key); });
}

void DiskTier::removeMatching(const CacheKey& key, VaryMatcher& request, const MemoryTier* own,
                              const Then& then) {
  const auto end = inAWhile();
  const TimedGate::Hold hold(writeGate_, end);
  if (hold) {
    tryWrite(end, [&](CacheWriter& writer) { return writer.removeMatching(key, request); });
  }
  then(0);
  tellOthers(own, [&](MemoryTier& memory) { memory.remove(key); });
}

void DiskTier::remove(const CacheKey& key, const MemoryTier* own, const Then& then) {
  const auto end = inAWhile();
  const TimedGate::Hold hold(writeGate_, end);
  const bool removed =
      hold && tryWrite(end, [&](CacheWriter& writer) { return writer.remove(key); });
  if (!removed) {
    const std::lock_guard lock(mutex_);
    outdated_.insert(key.url);
    if (outdated_.size() > mostOutdated) ++allOutdated_;
  }
  then(0);
  tellOthers(own, [&](MemoryTier& memory) { memory.remove(key); });
}

void DiskTier::removeAll(const MemoryTier* own, const Then& then) {
  const auto end = inAWhile();
  const TimedGate::Hold hold(writeGate_, end);
  const bool removed =
      hold && tryWrite(end, [](CacheWriter& writer) { return writer.removeAll(); });
  {
    const std::lock_guard lock(mutex_);
    if (!removed) ++allOutdated_;
    uses_.clear();
  }
  then(0);
  tellOthers(own, [](MemoryTier& memory) { memory.clear(); });
  if (removed) scrub(end);
}

void DiskTier::trim(std::int64_t capacity) {
  const auto end = inAWhile();
  const TimedGate::Hold hold(writeGate_, end);
  if (!hold) return;
  const bool trimmed = tryWrite(end, [&](CacheWriter& writer) { return writer.evict(capacity); });
  if (trimmed && writer_->isSparse().value_or(false)) scrub(end);
}

std::int64_t DiskTier::usage() {
  std::int64_t bytes = 0;
  read([&](CacheReader& reader) -> SQLiteStatus {
    const auto result = reader.usage();
    if (!result) return tl::unexpected(result.error());
    bytes = std::max<std::int64_t>(0, *result);
    return {};
  });
  return bytes;
}

std::vector<CacheEntry> DiskTier::entries() {
  // With a connection of its own, since a long list takes long.
  if (!read([](CacheReader&) { return SQLiteStatus(); })) return {};
  auto reader = CacheReader::open(file_, inAWhile());
  auto list = reader ? reader->list() : tl::unexpected(reader.error());
  auto listed = list ? std::move(*list) : std::vector<CacheReader::Listed>();
  {
    const std::lock_guard lock(mutex_);
    if (allOutdated_ != 0) return {};
    for (CacheReader::Listed& each : listed) {
      const auto use = uses_.find(each.entry.id);
      if (use != uses_.end()) each.used = std::max(each.used, use->second);
    }
  }
  std::sort(listed.begin(), listed.end(),
            [](const auto& a, const auto& b) { return a.used > b.used; });
  std::vector<CacheEntry> entries;
  entries.reserve(listed.size());
  for (CacheReader::Listed& each : listed) entries.push_back(std::move(each.entry));
  return entries;
}

bool DiskTier::write(Clock::time_point deadline, const Work& work) {
  const TimedGate::Hold hold(writeGate_, deadline);
  return hold && tryWrite(deadline, work);
}

DiskTier::Clock::time_point DiskTier::lockDeadline(Clock::time_point deadline) const {
  return lockedOut_ ? std::min(deadline, Clock::now() + shortLockWait) : deadline;
}

// With the write gate held.
bool DiskTier::tryWrite(Clock::time_point deadline, const Work& work) {
  for (int attempt = 0; attempt < 2; ++attempt) {
    if (!ensureOpen(deadline)) return false;
    writer_->waitForLocksUntil(lockDeadline(deadline));
    const SQLiteStatus done = transact(work);
    if (done) {
      lockedOut_ = false;
      if (writer_->needsScrub() && Clock::now() >= nextScrub_) scrub(Clock::now());
      return true;
    }
    writer_->rollback();
    if (!recover(done.error(), deadline)) return false;
  }
  return false;
}

SQLiteStatus DiskTier::transact(const Work& work) {
  std::vector<std::string> outdated;
  int all = 0;
  std::int64_t clock = 0;
  {
    const std::lock_guard lock(mutex_);
    clock = clock_;
    outdated.assign(outdated_.begin(), outdated_.end());
    all = allOutdated_;
  }
  const auto lastUse = [this](std::int64_t id) { return this->lastUse(id); };
  if (auto begun = writer_->begin(clock, lastUse); !begun) return begun;
  noteStamp(writer_->stampBefore());
  if (all != 0) {
    if (auto removed = writer_->removeAll(); !removed) return removed;
  }
  for (const std::string& url : outdated) {
    if (auto removed = writer_->remove(cacheKey(url)); !removed) return removed;
  }
  if (auto worked = work(*writer_); !worked) return worked;
  if (auto committed = writer_->commit(); !committed) return committed;
  // Only now: until here it might not have happened.
  const std::lock_guard lock(mutex_);
  for (const std::string& url : outdated) outdated_.erase(url);
  allOutdated_ -= all;
  clock_ = std::max(clock_, writer_->clock());
  return {};
}

std::int64_t DiskTier::lastUse(std::int64_t id) {
  const std::lock_guard lock(mutex_);
  const auto use = uses_.find(id);
  return use != uses_.end() ? use->second : 0;
}

SQLiteStatus DiskTier::writeUses(CacheWriter& writer) {
  std::vector<std::pair<std::int64_t, std::int64_t>> latest;
  {
    const std::lock_guard lock(mutex_);
    for (const auto& [id, clock] : uses_) latest.emplace_back(clock, id);
  }
  std::sort(latest.rbegin(), latest.rend());
  if (latest.size() > mostWrittenUses) latest.resize(mostWrittenUses);
  for (const auto& [clock, id] : latest) {
    if (auto touched = writer.touch(id, clock); !touched) return touched;
  }
  return {};
}

// With the write gate held: whether another attempt makes sense.
bool DiskTier::recover(const SQLiteError& error, Clock::time_point deadline) {
  if (error.isBusy()) {
    lockedOut_ = true;
    return false;
  }
  // The tables never break their own rules but by damage.
  if (error.isCorruption() || (error.code & 0xff) == constraint) {
    close();
    return open(deadline, CacheContents::discard);
  }
  switch (error.code & 0xff) {
    case ioError:
    case outOfMemory:
    case diskFull:
    case tooBig:
      return false;  // what is stored can still be read
    default:
      close();  // another process has replaced the tables or the file
      return true;
  }
}

bool DiskTier::read(const Read& work) {
  const auto end = inAWhile();
  for (int attempt = 0; attempt < 2; ++attempt) {
    SQLiteStatus done;
    bool tried = false;
    {
      const TimedGate::Hold hold(readGate_, end);
      if (!hold) return false;
      const auto now = Clock::now();
      const bool look = reader_ && now >= nextLook_;
      if (look) nextLook_ = now + pause;
      if (reader_ && !(look && wasMoved())) {
        tried = true;
        reader_->waitForLocksUntil(end);
        done = work(*reader_);
        if (done) return true;
      }
    }
    const TimedGate::Hold hold(writeGate_, end);
    if (!hold) return false;
    if (tried) {
      if (done.error().isBusy()) return false;
      // A reader that cannot read is of no use, unlike a writer that cannot write.
      if (!done.error().isCorruption()) close();
      if (done.error().isCorruption() && !recover(done.error(), end)) return false;
    }
    if (!ensureOpen(end)) return false;
  }
  return false;
}

// With the write gate held, as everything below that opens and closes.
bool DiskTier::ensureOpen(Clock::time_point deadline) {
  if (writer_ && !wasMoved()) return true;
  close();
  if (Clock::now() < nextAttempt_) return false;
  return open(lockDeadline(deadline), CacheContents::keep);
}

bool DiskTier::open(Clock::time_point deadline, CacheContents contents) {
  nextAttempt_ = Clock::now() + pause;
  if (!createPrivateFolders(folder_)) return false;
  auto writer = CacheWriter::open(file_, deadline, contents, name_);
  auto reader =
      writer ? CacheReader::open(file_, deadline) : tl::unexpected(SQLiteError(writer.error()));
  if (!reader) {
    lockedOut_ = lockedOut_ || reader.error().isBusy();
    return reader.error().isDamage() && contents == CacheContents::keep &&
           open(deadline, CacheContents::discard);
  }
  {
    const std::lock_guard lock(mutex_);
    if (!openedBefore_) foreign_ = writer->stampBefore();
    clock_ = std::max(clock_, writer->clock());
    openedBefore_ = true;
  }
  const TimedGate::Hold hold(readGate_, Clock::now() + std::chrono::seconds(10));
  if (!hold) return false;
  identity_ = identityOf(file_);
  dataVersion_ = -1;
  writer_ = std::move(*writer);
  reader_ = std::move(*reader);
  nextAttempt_ = {};
  return true;
}

void DiskTier::close() {
  writer_.reset();
  const TimedGate::Hold hold(readGate_, Clock::now() + std::chrono::seconds(10));
  if (hold) reader_.reset();
}

// With the read gate held: whether another file lies now where the open one was.
bool DiskTier::wasReplaced() {
  const auto now = Clock::now();
  if (now < nextLook_) return false;
  nextLook_ = now + pause;
  const auto identity = identityOf(file_);
  return identity.second != 0 && identity != identity_;
}

// With one of the gates held.
bool DiskTier::wasMoved() const { return identityOf(file_) != identity_; }

// Readers are kept out only while the log is emptied: the other part may take long.
void DiskTier::scrub(Clock::time_point deadline) {
  nextScrub_ = Clock::now() + pause;
  writer_->waitForLocksUntil(deadline);
  if (const auto done = writer_->vacuum(); !done) return;
  const auto end = std::max(deadline, Clock::now() + shortLockWait);
  const TimedGate::Hold hold(readGate_, end);
  if (!hold) return;
  writer_->waitForLocksUntil(end);
  static_cast<void>(writer_->emptyLog());
}

// What the file says about its last writer: another one than this tier, and not the one known
// already, means that others have changed something.
void DiskTier::noteStamp(const CacheStamp& stamp) {
  const std::lock_guard lock(mutex_);
  if (stamp.writer == name_ || stamp == foreign_) return;
  foreign_ = stamp;
  ++generation_;
}

void DiskTier::dropDamaged(const std::vector<CacheReader::Damaged>& rows) {
  write(Clock::now(), [&](CacheWriter& writer) { return writer.removeDamaged(rows); });
}

void DiskTier::tellOthers(const MemoryTier* own, const std::function<void(MemoryTier&)>& tell) {
  const std::lock_guard lock(mutex_);
  for (MemoryTier* memory : memories_) {
    if (memory != own) tell(*memory);
  }
}

bool DiskTier::isOutdated(const CacheKey& key) {
  const std::lock_guard lock(mutex_);
  return allOutdated_ != 0 || (!outdated_.empty() && outdated_.contains(key.url));
}

}  // namespace paperloom::internal
