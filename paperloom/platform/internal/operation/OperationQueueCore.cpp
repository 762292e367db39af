#include "paperloom/platform/internal/operation/OperationQueueCore.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "paperloom/platform/internal/base/QuietThread.h"

namespace paperloom::internal {

bool OperationQueueCore::add(std::shared_ptr<Operation> operation) {
  if (!operation || operation->isFinished()) return false;
  {
    const MutexLock lock(mutex_);
    if (closed_ || operation->enqueued_.exchange(true)) return false;
    entries_.emplace(operation.get(), Entry{.operation = operation});
  }
  // No announcement may be missed: nothing starts the operation before it is observed.
  operation->addObserver(shared_from_this());
  if (operation->isFinished()) {
    operationFinished(*operation);
  } else if (operation->isReady()) {
    operationBecameReady(*operation);
  }
  return true;
}

void OperationQueueCore::didChangeValue(Operation& operation, std::string_view key) {
  if (key == Operation::isFinishedKey) {
    if (operation.isFinished()) operationFinished(operation);
  } else if (key == Operation::isReadyKey && operation.isReady()) {
    operationBecameReady(operation);
  }
}

void OperationQueueCore::operationBecameReady(Operation& operation) {
  const MutexLock lock(mutex_);
  Entry* const entry = find(operation);
  if (entry == nullptr) return;
  // It is being asked without the lock: whoever asks may have got the answer from before.
  if (entry->stage == Stage::asking) entry->announcedMeanwhile = true;
  if (entry->stage != Stage::waiting) return;
  enqueue(*entry);
  wakeThreads();
}

void OperationQueueCore::didCancel(Operation& operation) {
  const MutexLock lock(mutex_);
  Entry* const entry = find(operation);
  if (entry == nullptr) return;
  if (entry->stage == Stage::asking) entry->announcedMeanwhile = true;
  if (entry->stage != Stage::waiting && entry->stage != Stage::queued) return;
  enqueue(*entry);
  wakeThreads();
}

void OperationQueueCore::operationFinished(Operation& operation) {
  std::unordered_map<const Operation*, Entry>::node_type left;  // released after the lock
  {
    const MutexLock lock(mutex_);
    left = entries_.extract(&operation);
    if (left.empty()) return;
    leaveLine(left.mapped());
    releasePlace(left.mapped());
    if (entries_.empty()) empty_.notifyAll();
    wakeThreads();
  }
  operation.removeObserver(shared_from_this());
}

OperationQueueCore::Entry* OperationQueueCore::find(const Operation& operation) {
  const auto found = entries_.find(&operation);
  return found == entries_.end() ? nullptr : &found->second;
}

void OperationQueueCore::enqueue(Entry& entry, bool asFirst) {
  leaveLine(entry);
  entry.stage = Stage::queued;
  entry.line = entry.operation->isCancelled() ? &cancelled_ : &ready_;
  entry.turn = entry.line->insert(asFirst ? entry.line->begin() : entry.line->end(), &entry);
}

void OperationQueueCore::leaveLine(Entry& entry) {
  if (Line* const line = std::exchange(entry.line, nullptr)) line->erase(entry.turn);
}

void OperationQueueCore::releasePlace(Entry& entry) {
  if (std::exchange(entry.holdsPlace, false)) --placesHeld_;
}

std::size_t OperationQueueCore::freePlaces() const {
  if (limit_ < 0) return std::numeric_limits<std::size_t>::max();
  const auto places = static_cast<std::size_t>(limit_);
  return places > placesHeld_ ? places - placesHeld_ : 0;
}

std::size_t OperationQueueCore::maximumThreads() const {
  if (limit_ < 0) return std::max(4U, std::thread::hardware_concurrency());
  return static_cast<std::size_t>(std::clamp(limit_, 1, 64));
}

void OperationQueueCore::wakeThreads() {
  if (suspended_ || closed_) return;
  // What is cancelled needs no place: it only has to say that it has finished.
  const std::size_t wanted = cancelled_.size() + std::min(ready_.size(), freePlaces());
  while (idleThreads_ < wanted && threads_.size() < maximumThreads()) {
    threads_.push_back(startQuietThread([core = shared_from_this()] { core->runThread(); }));
    ++idleThreads_;  // until it looks for work
  }
  for (std::size_t i = 0; i < std::min(wanted, idleThreads_); ++i) work_.notifyOne();
  if (cancelled_.empty() || idleThreads_ > 0) return;
  // Every thread is held by an operation that runs; one that is cancelled may not wait for them.
  if (!spareThread_.joinable()) {
    spareThread_ = startQuietThread([core = shared_from_this()] { core->runSpareThread(); });
  }
  spareWork_.notifyOne();
}

OperationQueueCore::Entry* OperationQueueCore::nextEntry(bool onlyCancelled) {
  if (suspended_ && !closed_) return nullptr;
  Entry* entry = nullptr;
  if (!cancelled_.empty()) {
    entry = cancelled_.front();
  } else if (!onlyCancelled && !closed_ && !ready_.empty() && freePlaces() > 0) {
    entry = ready_.front();
    entry->holdsPlace = true;
    ++placesHeld_;
  } else {
    return nullptr;
  }
  leaveLine(*entry);
  entry->stage = Stage::asking;
  return entry;
}

bool OperationQueueCore::mayStart(const Entry& entry) const {
  return entry.operation->isCancelled() || (!closed_ && !suspended_ && entry.cancellations == 0);
}

bool OperationQueueCore::isToStart(Entry& entry, bool isReady) {
  const bool wasAnnounced = std::exchange(entry.announcedMeanwhile, false);
  if (isReady && mayStart(entry)) {
    entry.stage = Stage::started;
    return true;
  }
  releasePlace(entry);
  entry.stage = Stage::waiting;
  if (entry.cancellations == 0 && (isReady || wasAnnounced)) enqueue(entry, isReady);
  return false;
}

void OperationQueueCore::startQueued(bool onlyCancelled) {
  while (const Entry* next = nextEntry(onlyCancelled)) {
    std::shared_ptr<Operation> operation = next->operation;
    // Whether it is ready, and start(), are the host's code: neither runs with the lock held.
    mutex_.unlock();
    const bool isReady = operation->isReady();
    mutex_.lock();
    Entry* const entry = find(*operation);
    const bool starts = entry != nullptr && isToStart(*entry, isReady);
    mutex_.unlock();
    if (starts) operation->start();
    operation.reset();  // perhaps the last hold: its destructor is the host's code, too
    mutex_.lock();
  }
}

void OperationQueueCore::runThread() {
  const MutexLock lock(mutex_);
  while (true) {
    --idleThreads_;
    startQueued(false);
    ++idleThreads_;
    if (closed_) return;
    work_.wait(mutex_);
  }
}

void OperationQueueCore::runSpareThread() {
  const MutexLock lock(mutex_);
  while (true) {
    startQueued(true);
    if (closed_) return;
    spareWork_.wait(mutex_);
  }
}

void OperationQueueCore::cancelAll() {
  std::vector<std::shared_ptr<Operation>> operations;
  {
    const MutexLock lock(mutex_);
    operations.reserve(entries_.size());
    for (auto& [key, entry] : entries_) {
      operations.push_back(entry.operation);
      ++entry.cancellations;
    }
  }
  for (const auto& operation : operations) operation->cancel();
  const MutexLock lock(mutex_);
  for (const auto& operation : operations) {
    Entry* const entry = find(*operation);
    if (entry == nullptr) continue;
    --entry->cancellations;
    // Whether it heeded the call or not, it is asked again.
    if (entry->stage == Stage::waiting) enqueue(*entry);
  }
  wakeThreads();
}

void OperationQueueCore::close() {
  std::vector<std::thread> threads;
  {
    const MutexLock lock(mutex_);
    closed_ = true;
    threads.swap(threads_);
    if (spareThread_.joinable()) threads.push_back(std::move(spareThread_));
    work_.notifyAll();
    spareWork_.notifyAll();
  }
  cancelAll();
  {
    const MutexLock lock(mutex_);
    startQueued(true);
  }
  const auto isCaller = [](const std::thread& thread) {
    return thread.get_id() == std::this_thread::get_id();
  };
  const bool closedFromWithin = std::any_of(threads.begin(), threads.end(), isCaller);
  // A thread cannot wait for itself, nor for others that may be waiting for what it holds.
  for (std::thread& thread : threads) closedFromWithin ? thread.detach() : thread.join();

  std::unordered_map<const Operation*, Entry> unfinished;
  {
    const MutexLock lock(mutex_);
    ready_.clear();
    cancelled_.clear();
    unfinished.swap(entries_);
  }
  for (auto& [key, entry] : unfinished) entry.operation->removeObserver(shared_from_this());
}

int OperationQueueCore::limit() const {
  const MutexLock lock(mutex_);
  return limit_;
}

void OperationQueueCore::setLimit(int limit) {
  const MutexLock lock(mutex_);
  limit_ = std::max(limit, -1);
  wakeThreads();
}

bool OperationQueueCore::isSuspended() const {
  const MutexLock lock(mutex_);
  return suspended_;
}

void OperationQueueCore::setSuspended(bool suspended) {
  const MutexLock lock(mutex_);
  suspended_ = suspended;
  wakeThreads();
}

std::size_t OperationQueueCore::operationCount() const {
  const MutexLock lock(mutex_);
  return entries_.size();
}

bool OperationQueueCore::waitUntilEmpty(const Operation::Deadline& deadline) const {
  const MutexLock lock(mutex_);
  while (!entries_.empty()) {
    if (!deadline) {
      empty_.wait(mutex_);
    } else if (!empty_.waitUntil(mutex_, *deadline)) {
      return entries_.empty();
    }
  }
  return true;
}

}  // namespace paperloom::internal
