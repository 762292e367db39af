#include "paperloom/platform/Operation.h"

#include <algorithm>
#include <utility>

namespace paperloom {

Operation::Operation() = default;

Operation::~Operation() {
  // A long chain of operations that never ran is taken down link by link, not by recursion.
  std::vector<std::shared_ptr<Operation>> released;
  {
    const MutexLock lock(mutex_);
    released.swap(dependencies_);
  }
  while (!released.empty()) {
    const std::shared_ptr<Operation> last = std::move(released.back());
    released.pop_back();
    if (last.use_count() != 1) continue;
    const MutexLock lock(last->mutex_);
    for (auto& dependency : last->dependencies_) released.push_back(std::move(dependency));
    last->dependencies_.clear();
  }
}

bool Operation::isReady() const { return cancelled_ || dependenciesFinished_; }

void Operation::start() {
  if (started_.exchange(true)) return;
  const bool runs = !isCancelled();
  if (runs) {
    willChangeValue(isExecutingKey);
    executing_ = true;
    didChangeValue(isExecutingKey);
    main();
    willChangeValue(isExecutingKey);
  }
  willChangeValue(isFinishedKey);
  executing_ = false;
  finished_ = true;
  if (runs) didChangeValue(isExecutingKey);
  didChangeValue(isFinishedKey);
}

void Operation::cancel() {
  if (cancelled_ || isFinished()) return;
  const auto isHeldBack = [this] { return !dependenciesFinished_ && !isFinished(); };
  const bool becomesReady = isHeldBack();
  if (becomesReady) willChangeValue(isReadyKey);
  cancelled_ = true;
  if (becomesReady) {
    didChangeValue(isReadyKey);
  } else if (isHeldBack()) {  // a dependency came meanwhile
    willChangeValue(isReadyKey);
    didChangeValue(isReadyKey);
  }
  if (const auto heard = observers()) {
    for (const auto& observer : *heard) observer->didCancel(*this);
  }
}

void Operation::addDependency(std::shared_ptr<Operation> dependency) {
  if (!dependency) return;
  bool becomesUnready = false;
  {
    const MutexLock lock(mutex_);
    if (isComplete_) return;
    if (!unfinished_.insert(dependency.get()).second) return;
    dependencies_.push_back(dependency);
    becomesUnready = unfinished_.size() == 1;
  }
  if (becomesUnready) announceReadiness();
  bool isComplete = dependency->isFinished();
  {
    const MutexLock lock(dependency->mutex_);
    isComplete = isComplete || dependency->isComplete_;
    if (!isComplete) dependency->dependents_.push_back(weak_from_this());
  }
  if (isComplete) dependencyFinished(dependency.get());
}

void Operation::removeDependency(const std::shared_ptr<Operation>& dependency) {
  {
    const MutexLock lock(mutex_);
    std::erase(dependencies_, dependency);
  }
  dependencyFinished(dependency.get());
}

std::vector<std::shared_ptr<Operation>> Operation::dependencies() const {
  const MutexLock lock(mutex_);
  return dependencies_;
}

void Operation::dependencyFinished(const Operation* dependency) {
  {
    const MutexLock lock(mutex_);
    if (unfinished_.erase(dependency) == 0 || !unfinished_.empty()) return;
  }
  announceReadiness();
}

void Operation::announceReadiness() {
  willChangeValue(isReadyKey);
  {
    const MutexLock lock(mutex_);
    dependenciesFinished_ = unfinished_.empty();
  }
  didChangeValue(isReadyKey);
}

void Operation::setCompletionBlock(std::function<void()> block) {
  const MutexLock lock(mutex_);
  if (!isComplete_) completionBlock_.swap(block);
}

bool Operation::waitUntilFinished(Deadline deadline) const {
  const MutexLock lock(mutex_);
  while (!isComplete_) {
    if (!deadline) {
      completed_.wait(mutex_);
    } else if (!completed_.waitUntil(mutex_, *deadline)) {
      return isComplete_;
    }
  }
  return true;
}

void Operation::addObserver(std::shared_ptr<OperationObserver> observer) {
  if (!observer) return;
  const MutexLock lock(mutex_);
  auto changed =
      observers_ ? std::make_shared<Observers>(*observers_) : std::make_shared<Observers>();
  changed->push_back(std::move(observer));
  observers_ = std::move(changed);
}

void Operation::removeObserver(const std::shared_ptr<OperationObserver>& observer) {
  std::shared_ptr<const Observers> previous;  // released after the lock
  const MutexLock lock(mutex_);
  if (!observers_) return;
  auto changed = std::make_shared<Observers>(*observers_);
  std::erase(*changed, observer);
  previous = std::exchange(observers_, changed->empty() ? nullptr : std::move(changed));
}

std::shared_ptr<const Operation::Observers> Operation::observers() const {
  const MutexLock lock(mutex_);
  return observers_;
}

void Operation::willChangeValue(std::string_view key) {
  if (const auto heard = observers()) {
    for (const auto& observer : *heard) observer->willChangeValue(*this, key);
  }
}

void Operation::didChangeValue(std::string_view key) {
  const bool mayEnd = key == isFinishedKey;
  // The queue lets go of a finished operation, which may be the last to hold it.
  const auto self = mayEnd ? weak_from_this().lock() : nullptr;
  if (const auto heard = observers()) {
    for (const auto& observer : *heard) observer->didChangeValue(*this, key);
  }
  if (mayEnd && isFinished()) completeOnce();
}

void Operation::completeOnce() {
  std::function<void()> block;
  std::vector<std::weak_ptr<Operation>> dependents;
  std::vector<std::shared_ptr<Operation>> dependencies;  // released after the lock
  {
    const MutexLock lock(mutex_);
    if (isComplete_) return;
    isComplete_ = true;
    block.swap(completionBlock_);
    dependents.swap(dependents_);
    dependencies.swap(dependencies_);
    unfinished_.clear();
    completed_.notifyAll();
  }
  for (const auto& dependent : dependents) {
    if (const auto waiting = dependent.lock()) waiting->dependencyFinished(this);
  }
  if (block) block();
}

}  // namespace paperloom
