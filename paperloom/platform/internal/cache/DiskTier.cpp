#include "paperloom/platform/internal/cache/DiskTier.h"

#include <algorithm>
#include <map>
#include <utility>

#include "paperloom/platform/Mutex.h"
#include "paperloom/platform/internal/base/PrivateFolders.h"
#include "paperloom/platform/internal/base/Try.h"
#include "paperloom/platform/internal/cache/MemoryTier.h"

namespace paperloom::internal {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds lastWait{250};

struct OpenTiers {
  Mutex mutex;
  std::map<std::filesystem::path, std::weak_ptr<DiskTier>> byFolder PAPERLOOM_GUARDED_BY(mutex);
};

// The id of the row that was stored, if one was.
SQLiteResult<std::int64_t> make(const DiskTier::Change& change, std::int64_t capacity,
                                CacheWriter& writer) {
  switch (change.kind) {
    case DiskTier::Change::Kind::store:
      return writer.store(change.key, *change.request, *change.entry, capacity);
    case DiskTier::Change::Kind::removeMatching:
      TRY(writer.removeMatching(change.key, *change.request));
      break;
    case DiskTier::Change::Kind::remove:
      TRY(writer.remove(change.key));
      break;
  }
  return 0;
}

}  // namespace

std::shared_ptr<DiskTier> DiskTier::shared(const std::filesystem::path& folder) {
  static auto& tiers = *new OpenTiers;
  createPrivateFolders(folder);
  std::error_code error;
  auto path = std::filesystem::weakly_canonical(folder, error);
  if (error) path = folder.lexically_normal();
  const MutexLock lock(tiers.mutex);
  std::erase_if(tiers.byFolder, [](const auto& each) { return each.second.expired(); });
  auto& known = tiers.byFolder[path];
  auto tier = known.lock();
  if (!tier) known = tier = std::make_shared<DiskTier>(path);
  return tier;
}

DiskTier::DiskTier(const std::filesystem::path& folder) : connection_(folder, ledger_) {}

DiskTier::~DiskTier() {
  if (!ledger_.hasSomethingToWrite()) return;
  const Deadline deadline = Clock::now() + lastWait;
  if (!connection_.writeGate().enter(deadline)) return;
  const TimedGate::Hold hold(connection_.writeGate());
  connection_.write(deadline, Room::always, nullptr, [this](CacheWriter& writer) -> SQLiteStatus {
    for (const auto& [clock, id] : ledger_.usesToWrite()) TRY(writer.touch(id, clock));
    return {};
  });
}

std::optional<CacheEntry> DiskTier::find(const CacheKey& key, VaryMatcher& request, const URL& url,
                                         Deadline deadline) {
  if (ledger_.isOutdated(key.url)) return std::nullopt;
  CacheReader::Found found;
  connection_.read(deadline, [&](CacheReader& reader) -> SQLiteStatus {
    found = TRY(reader.find(key, request, url));
    return {};
  });
  if (!found.damaged.empty()) dropDamaged(found.damaged);
  // A store may have failed meanwhile.
  if (found.entry && ledger_.isOutdated(key.url)) return std::nullopt;
  if (found.entry) noteUse(found.entry->id);
  return std::move(found.entry);
}

std::optional<std::uint64_t> DiskTier::generationAtOnce() {
  if (!connection_.isCurrent()) return std::nullopt;
  return ledger_.generation();
}

void DiskTier::change(const std::vector<Change>& changes, std::int64_t capacity,
                      const MemoryTier* own, Deadline deadline) {
  if (changes.size() > 1 && changeTogether(changes, capacity, own, deadline)) return;
  for (const Change& one : changes) changeOne(one, capacity, own, deadline);
}

// The memories are told while the write gate is held, so that they hear of changes in the order in
// which the file has them.
bool DiskTier::changeTogether(const std::vector<Change>& changes, std::int64_t capacity,
                              const MemoryTier* own, Deadline deadline) {
  // What is outdated has to go before it is stored anew, which is done one by one.
  if (std::any_of(changes.begin(), changes.end(),
                  [this](const Change& one) { return ledger_.isOutdated(one.key.url); })) {
    return false;
  }
  if (!connection_.writeGate().enter(deadline)) return false;
  const TimedGate::Hold hold(connection_.writeGate());
  std::vector<std::int64_t> ids;
  const auto makeAll = [&](CacheWriter& writer) -> SQLiteStatus {
    ids.clear();  // of an attempt before this one
    for (const Change& one : changes) ids.push_back(TRY(make(one, capacity, writer)));
    return {};
  };
  if (!connection_.write(deadline, Room::asLogAllows, nullptr, makeAll)) return false;
  for (std::size_t i = 0; i < changes.size(); ++i) tell(changes[i], ids[i], own);
  return true;
}

void DiskTier::changeOne(const Change& change, std::int64_t capacity, const MemoryTier* own,
                         Deadline deadline) {
  if (!connection_.writeGate().enter(deadline)) {
    ledger_.noteOutdated(change.key);
    return tell(change, 0, own);
  }
  const TimedGate::Hold hold(connection_.writeGate());
  std::int64_t id = 0;
  const auto makeOne = [&](CacheWriter& writer) -> SQLiteStatus {
    id = TRY(make(change, capacity, writer));
    return {};
  };
  if (!connection_.write(deadline, Room::asLogAllows, &change.key, makeOne)) {
    id = 0;
    ledger_.noteOutdated(change.key);
    connection_.removeOutdated(deadline);
  }
  tell(change, id, own);
}

void DiskTier::tell(const Change& change, std::int64_t id, const MemoryTier* own) {
  change.then(id);
  ledger_.tell(own, [&](MemoryTier& memory) { memory.remove(change.key); });
}

void DiskTier::removeAll(const MemoryTier* own, const Then& then, Deadline deadline) {
  const auto forget = [&](bool isDone) {
    ledger_.forgetUses();
    if (!isDone) ledger_.noteAllOutdated();
  };
  const auto tellAll = [&] {
    then(0);
    ledger_.tell(own, [](MemoryTier& memory) { memory.clear(); });
  };
  if (!connection_.writeGate().enter(deadline)) {
    forget(false);
    return tellAll();
  }
  const TimedGate::Hold hold(connection_.writeGate());
  const bool isDone = connection_.write(deadline, Room::always, nullptr,
                                        [](CacheWriter& writer) { return writer.removeAll(); });
  forget(isDone);
  if (!isDone) connection_.removeOutdated(deadline);
  tellAll();
  if (isDone) connection_.scrub(deadline);
}

void DiskTier::trim(std::int64_t capacity, Deadline deadline) {
  bool isTrimmed = false;
  if (connection_.writeGate().enter(deadline)) {
    const TimedGate::Hold hold(connection_.writeGate());
    isTrimmed = connection_.write(deadline, Room::always, nullptr,
                                  [&](CacheWriter& writer) { return writer.evict(capacity); });
    if (isTrimmed) connection_.scrubIfSparse(deadline);
  }
  // Without a disk, what is stored meanwhile would not replace what stays there.
  if (!isTrimmed && capacity == 0) ledger_.noteAllOutdated();
}

std::int64_t DiskTier::usage(Deadline deadline) {
  std::int64_t bytes = 0;
  connection_.read(deadline, [&](CacheReader& reader) -> SQLiteStatus {
    bytes = std::max<std::int64_t>(0, TRY(reader.usage()));
    return {};
  });
  return bytes;
}

std::vector<CacheEntry> DiskTier::entries(Deadline deadline) {
  if (!connection_.read(deadline, [](CacheReader&) { return SQLiteStatus(); })) return {};
  auto reader = connection_.anotherReader(deadline);
  auto list = reader ? reader->list() : tl::unexpected(reader.error());
  auto listed = list ? std::move(*list) : std::vector<CacheReader::Listed>();
  std::erase_if(listed, [this](const auto& each) { return ledger_.isOutdated(each.url); });
  for (auto& each : listed) each.used = std::max(each.used, ledger_.lastUse(each.entry.id));
  std::sort(listed.begin(), listed.end(),
            [](const auto& a, const auto& b) { return a.used > b.used; });
  std::vector<CacheEntry> entries;
  entries.reserve(listed.size());
  for (CacheReader::Listed& each : listed) entries.push_back(std::move(each.entry));
  return entries;
}

// Without a wait: the row is a miss until it goes.
void DiskTier::dropDamaged(const std::vector<CacheReader::Damaged>& rows) {
  const Deadline now = Clock::now();
  if (!connection_.writeGate().enter(now)) return;
  const TimedGate::Hold hold(connection_.writeGate());
  connection_.write(now, Room::asLogAllows, nullptr,
                    [&](CacheWriter& writer) { return writer.removeDamaged(rows); });
}

}  // namespace paperloom::internal
