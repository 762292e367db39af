#include "paperloom/platform/OperationQueue.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "paperloom/platform/internal/base/QuietThread.h"
#include "paperloom/platform/internal/operation/OperationQueueCore.h"

namespace paperloom {
namespace internal {

bool OperationQueueCore::add(std::shared_ptr<Operation> operation) {
  if (!operation || operation->isFinished()) return false;
  {
    const std::lock_guard lock(mutex_);
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
  const std::lock_guard lock(mutex_);
  const auto found = entries_.find(&operation);
  if (found == entries_.end()) return;
  Entry& entry = found->second;
  if (entry.stage == Stage::asking) entry.announcedMeanwhile = true;
  // One that is cancelled while it waits for a place may go without.
  if (entry.stage == Stage::waiting || (entry.stage == Stage::queued && operation.isCancelled())) {
    enqueue(entry);
    wakeThreads();
  }
}

void OperationQueueCore::operationFinished(Operation& operation) {
  std::unordered_map<const Operation*, Entry>::node_type left;  // released after the lock
  {
    const std::lock_guard lock(mutex_);
    left = entries_.extract(&operation);
    if (left.empty()) return;
    if (left.mapped().holdsPlace) --placesHeld_;
    if (entries_.empty()) empty_.notify_all();
    wakeThreads();
  }
  operation.removeObserver(shared_from_this());
}

void OperationQueueCore::enqueue(Entry& entry) {
  entry.stage = Stage::queued;
  (entry.operation->isCancelled() ? cancelled_ : ready_).push_back(entry.operation.get());
}

std::size_t OperationQueueCore::freePlaces() const {
  if (limit_ < 0 || closed_) return std::numeric_limits<std::size_t>::max();
  const auto places = static_cast<std::size_t>(limit_);
  return places > placesHeld_ ? places - placesHeld_ : 0;
}

std::size_t OperationQueueCore::maximumThreads() const {
  if (limit_ < 0) return std::max(4U, std::thread::hardware_concurrency());
  return static_cast<std::size_t>(std::clamp(limit_, 1, 64));
}

void OperationQueueCore::wakeThreads() {
  if (suspended_ && !closed_) return;
  const std::size_t wanted = cancelled_.size() + std::min(ready_.size(), freePlaces());
  while (!closed_ && idleThreads_ < wanted && threads_.size() < maximumThreads()) makeThread();
  for (std::size_t i = 0; i < std::min(wanted, idleThreads_); ++i) work_.notify_one();
}

void OperationQueueCore::makeThread() {
  threads_.push_back(startQuietThread([core = shared_from_this()] { core->runThread(); }));
  ++idleThreads_;  // until it looks for work
}

OperationQueueCore::Entry* OperationQueueCore::nextEntry() {
  if (suspended_ && !closed_) return nullptr;
  const auto next = [this](std::deque<const Operation*>& queue) -> Entry* {
    while (!queue.empty()) {
      const auto found = entries_.find(queue.front());
      queue.pop_front();
      if (found != entries_.end() && found->second.stage == Stage::queued) return &found->second;
    }
    return nullptr;
  };
  if (Entry* entry = next(cancelled_)) return entry;
  if (freePlaces() == 0) return nullptr;
  Entry* entry = next(ready_);
  if (entry != nullptr) {
    entry->holdsPlace = true;
    ++placesHeld_;
  }
  return entry;
}

void OperationQueueCore::startQueued(std::unique_lock<std::mutex>& lock) {
  while (Entry* entry = nextEntry()) {
    entry->stage = Stage::asking;
    std::shared_ptr<Operation> operation = entry->operation;
    lock.unlock();
    const bool isReady = operation->isReady();
    lock.lock();
    const auto found = entries_.find(operation.get());
    const bool isHere = found != entries_.end();
    if (isHere && !isReady) {
      Entry& unready = found->second;
      if (std::exchange(unready.holdsPlace, false)) --placesHeld_;
      unready.stage = Stage::waiting;
      if (std::exchange(unready.announcedMeanwhile, false)) enqueue(unready);
    } else if (isHere) {
      found->second.stage = Stage::started;
    }
    lock.unlock();
    if (isHere && isReady) operation->start();
    operation.reset();
    lock.lock();
  }
}

void OperationQueueCore::runThread() {
  std::unique_lock lock(mutex_);
  while (true) {
    --idleThreads_;
    startQueued(lock);
    ++idleThreads_;
    if (closed_) return;
    work_.wait(lock);
  }
}

void OperationQueueCore::cancelAll() {
  std::vector<std::shared_ptr<Operation>> operations;
  {
    const std::lock_guard lock(mutex_);
    operations.reserve(entries_.size());
    for (const auto& [key, entry] : entries_) operations.push_back(entry.operation);
  }
  for (const auto& operation : operations) operation->cancel();
  const std::lock_guard lock(mutex_);
  for (const Operation* key : std::exchange(ready_, {})) {
    const auto found = entries_.find(key);
    if (found != entries_.end() && found->second.stage == Stage::queued) enqueue(found->second);
  }
  wakeThreads();
}

void OperationQueueCore::close() {
  std::vector<std::thread> threads;
  {
    const std::lock_guard lock(mutex_);
    closed_ = true;
    threads.swap(threads_);
  }
  cancelAll();
  {
    std::unique_lock lock(mutex_);
    work_.notify_all();
    startQueued(lock);
  }
  const auto isCaller = [](const std::thread& thread) {
    return thread.get_id() == std::this_thread::get_id();
  };
  const bool closedFromWithin = std::any_of(threads.begin(), threads.end(), isCaller);
  for (std::thread& thread : threads) closedFromWithin ? thread.detach() : thread.join();

  decltype(entries_) unfinished;
  {
    const std::lock_guard lock(mutex_);
    unfinished.swap(entries_);
  }
  for (auto& [key, entry] : unfinished) entry.operation->removeObserver(shared_from_this());
}

int OperationQueueCore::limit() const {
  const std::lock_guard lock(mutex_);
  return limit_;
}

void OperationQueueCore::setLimit(int limit) {
  const std::lock_guard lock(mutex_);
  limit_ = std::max(limit, OperationQueue::defaultMaxConcurrentOperationCount);
  wakeThreads();
}

bool OperationQueueCore::isSuspended() const {
  const std::lock_guard lock(mutex_);
  return suspended_;
}

void OperationQueueCore::setSuspended(bool suspended) {
  const std::lock_guard lock(mutex_);
  suspended_ = suspended;
  wakeThreads();
}

std::size_t OperationQueueCore::operationCount() const {
  const std::lock_guard lock(mutex_);
  return entries_.size();
}

bool OperationQueueCore::waitUntilEmpty(const Operation::Deadline& deadline) const {
  std::unique_lock lock(mutex_);
  const auto isEmpty = [this] { return entries_.empty(); };
  if (deadline) return empty_.wait_until(lock, *deadline, isEmpty);
  empty_.wait(lock, isEmpty);
  return true;
}

}  // namespace internal

OperationQueue::OperationQueue() : core_(std::make_shared<internal::OperationQueueCore>()) {}

OperationQueue::~OperationQueue() { core_->close(); }

bool OperationQueue::addOperation(std::shared_ptr<Operation> operation) {
  return core_->add(std::move(operation));
}

bool OperationQueue::addOperations(const std::vector<std::shared_ptr<Operation>>& operations,
                                   bool waitUntilFinished, Deadline deadline) {
  for (const auto& operation : operations) core_->add(operation);
  if (!waitUntilFinished) return true;
  return std::all_of(operations.begin(), operations.end(), [&](const auto& operation) {
    return !operation || operation->waitUntilFinished(deadline);
  });
}

int OperationQueue::maxConcurrentOperationCount() const { return core_->limit(); }

void OperationQueue::setMaxConcurrentOperationCount(int count) { core_->setLimit(count); }

bool OperationQueue::isSuspended() const { return core_->isSuspended(); }

void OperationQueue::setSuspended(bool suspended) { core_->setSuspended(suspended); }

void OperationQueue::cancelAllOperations() { core_->cancelAll(); }

std::size_t OperationQueue::operationCount() const { return core_->operationCount(); }

bool OperationQueue::waitUntilAllOperationsAreFinished(Deadline deadline) const {
  return core_->waitUntilEmpty(deadline);
}

}  // namespace paperloom
