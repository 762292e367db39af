#include "paperloom/platform/internal/cache/CacheLedger.h"

#include <algorithm>

namespace paperloom::internal {
namespace {

// Uses noted in memory, and those of them that are worth writing in the end.
constexpr std::size_t mostUses = 65'536;
constexpr std::size_t mostWrittenUses = 4'096;
constexpr std::size_t mostOutdated = 10'000;
constexpr std::size_t mostRemovedAtOnce = 256;

}  // namespace

void CacheLedger::attach(MemoryTier* memory) {
  const MutexLock lock(mutex_);
  memories_.push_back(memory);
}

void CacheLedger::detach(MemoryTier* memory) {
  const MutexLock lock(mutex_);
  std::erase(memories_, memory);
}

void CacheLedger::tell(const MemoryTier* allBut, const std::function<void(MemoryTier&)>& tell) {
  const MutexLock lock(mutex_);
  for (MemoryTier* memory : memories_) {
    if (memory != allBut) tell(*memory);
  }
}

void CacheLedger::noteUse(std::int64_t id) {
  if (id == 0) return;
  const MutexLock lock(mutex_);
  // A process that only reads, and so much, can lose track of some uses.
  if (uses_.size() >= mostUses) uses_.clear();
  uses_[id] = ++clock_;
}

std::int64_t CacheLedger::lastUse(std::int64_t id) const {
  const MutexLock lock(mutex_);
  const auto use = uses_.find(id);
  return use != uses_.end() ? use->second : 0;
}

void CacheLedger::forgetUses() {
  const MutexLock lock(mutex_);
  uses_.clear();
}

std::vector<std::pair<std::int64_t, std::int64_t>> CacheLedger::usesToWrite() const {
  std::vector<std::pair<std::int64_t, std::int64_t>> latest;
  {
    const MutexLock lock(mutex_);
    for (const auto& [id, clock] : uses_) latest.emplace_back(clock, id);
  }
  std::sort(latest.rbegin(), latest.rend());
  if (latest.size() > mostWrittenUses) latest.resize(mostWrittenUses);
  return latest;
}

std::int64_t CacheLedger::clock() const {
  const MutexLock lock(mutex_);
  return clock_;
}

void CacheLedger::advanceClock(std::int64_t clock) {
  const MutexLock lock(mutex_);
  clock_ = std::max(clock_, clock);
}

void CacheLedger::noteOutdated(const CacheKey& key) {
  const MutexLock lock(mutex_);
  outdated_[key.url] = ++notes_;
  if (outdated_.size() <= mostOutdated) return;
  outdated_.clear();
  ++allOutdated_;
}

void CacheLedger::noteAllOutdated() {
  const MutexLock lock(mutex_);
  ++allOutdated_;
}

bool CacheLedger::isOutdated(const std::string& url) const {
  const MutexLock lock(mutex_);
  return allOutdated_ != 0 || (!outdated_.empty() && outdated_.contains(url));
}

CacheLedger::Outdated CacheLedger::outdated(const CacheKey* first) const {
  const MutexLock lock(mutex_);
  Outdated some;
  some.all = allOutdated_;
  if (first != nullptr) {
    if (const auto found = outdated_.find(first->url); found != outdated_.end()) {
      some.urls.emplace_back(*found);
    }
  }
  for (const auto& each : outdated_) {
    if (some.urls.size() > mostRemovedAtOnce) break;
    if (first == nullptr || each.first != first->url) some.urls.emplace_back(each);
  }
  return some;
}

void CacheLedger::noteRemoved(const Outdated& removed) {
  const MutexLock lock(mutex_);
  for (const auto& [url, note] : removed.urls) {
    const auto found = outdated_.find(url);
    if (found != outdated_.end() && found->second == note) outdated_.erase(found);
  }
  allOutdated_ -= removed.all;
}

bool CacheLedger::hasSomethingToWrite() const {
  const MutexLock lock(mutex_);
  return !uses_.empty() || !outdated_.empty() || allOutdated_ != 0;
}

std::uint64_t CacheLedger::generation() const {
  const MutexLock lock(mutex_);
  return generation_;
}

std::uint64_t CacheLedger::startGeneration() {
  const MutexLock lock(mutex_);
  return nextGeneration();
}

std::uint64_t CacheLedger::nextGeneration() {
  rows_.reset();
  learning_ = 0;
  return ++generation_;
}

void CacheLedger::noteStamp(const CacheStamp& stamp, std::int64_t own) {
  const MutexLock lock(mutex_);
  if (stamp.writer == own || stamp == foreign_) return;
  foreign_ = stamp;
  nextGeneration();
}

void CacheLedger::knowStamp(const CacheStamp& stamp) {
  const MutexLock lock(mutex_);
  foreign_ = stamp;
}

bool CacheLedger::isCurrent(const SQLiteLogMark& mark) const {
  const MutexLock lock(mutex_);
  return mark == current_;
}

void CacheLedger::noteCurrent(const SQLiteLogMark& mark) {
  const MutexLock lock(mutex_);
  current_ = mark;
}

void CacheLedger::noteWrite(const SQLiteWriteMarks& marks,
                            const std::vector<std::int64_t>& stored) {
  const MutexLock lock(mutex_);
  for (const std::int64_t id : stored) {
    if (rows_) rows_->add(id);
    if (learning_ != 0) storedMeanwhile_.push_back(id);
  }
  if (marks.before == current_) current_ = marks.after;
}

bool CacheLedger::mayHold(const CacheKey& key) const {
  const MutexLock lock(mutex_);
  return !rows_ || rows_->mayHold(key);
}

bool CacheLedger::knowsRows() const {
  const MutexLock lock(mutex_);
  return rows_ && !rows_->isFull();
}

std::uint64_t CacheLedger::beginToLearnRows() {
  const MutexLock lock(mutex_);
  storedMeanwhile_.clear();
  return learning_ = ++attempts_;
}

void CacheLedger::learnRows(std::uint64_t begun, std::vector<std::int64_t> ids) {
  const MutexLock lock(mutex_);
  if (begun != learning_) return;  // others have changed something, or another attempt has begun
  learning_ = 0;
  ids.insert(ids.end(), storedMeanwhile_.begin(), storedMeanwhile_.end());
  storedMeanwhile_.clear();
  rows_.emplace(ids);
}

void CacheLedger::forgetRows() {
  const MutexLock lock(mutex_);
  rows_.reset();
  learning_ = 0;
}

}  // namespace paperloom::internal
