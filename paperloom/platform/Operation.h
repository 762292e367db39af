#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "paperloom/platform/Export.h"
#include "paperloom/platform/Mutex.h"

namespace paperloom {

class Operation;
namespace internal {
class OperationQueueCore;
}

// Hears how an operation's state changes. Calls come on the thread that makes the change, with no
// lock held; both calls of one change come in order.
class PAPERLOOM_EXPORT OperationObserver {
 public:
  virtual ~OperationObserver() = default;
  // `key` names what is about to change: Operation::isReadyKey, isExecutingKey or isFinishedKey.
  virtual void willChangeValue(Operation&, std::string_view /*key*/) {}
  // The change is made. The operation's value may be the one it was: keys are also announced anew.
  virtual void didChangeValue(Operation&, std::string_view /*key*/) {}
  // The operation was cancelled before its end. Its readiness is announced beside, if it changed.
  virtual void didCancel(Operation&) {}
};

// A piece of work with a state, for an OperationQueue or to be started by hand. A plain operation
// overrides main(), which runs on the thread that calls start(); the operation is finished when
// main() returns. One that ends later, in a callback, overrides start() and the state, and
// announces every change with willChangeValue() and didChangeValue(): these announcements are all
// that queues, dependent operations and waiters go by.
//
// Operations are made with std::make_shared. Everything but the overrides' own state is safe from
// any thread. No function of the overrides, no observer and no block may throw.
class PAPERLOOM_EXPORT Operation : public std::enable_shared_from_this<Operation> {
 public:
  static constexpr std::string_view isReadyKey = "isReady";
  static constexpr std::string_view isExecutingKey = "isExecuting";
  static constexpr std::string_view isFinishedKey = "isFinished";

  using Deadline = std::optional<std::chrono::steady_clock::time_point>;

  Operation();
  virtual ~Operation();
  Operation(const Operation&) = delete;
  Operation& operator=(const Operation&) = delete;

  // Whether every dependency has finished, or the operation is cancelled and need not wait.
  virtual bool isReady() const;
  virtual bool isExecuting() const { return executing_; }
  virtual bool isFinished() const { return finished_; }
  // Whether the work goes on after start() has returned.
  virtual bool isAsynchronous() const { return false; }
  bool isCancelled() const { return cancelled_; }

  // Runs main() on this thread, unless the operation is cancelled: then it finishes without. Only
  // the first call counts. Dependencies are not waited for.
  virtual void start();
  virtual void main() {}
  // Asks the operation to end. One that has not started never runs main(), and no longer waits for
  // its dependencies; one that runs may look at isCancelled(). Changes nothing after the end. An
  // override calls this one.
  virtual void cancel();

  // The operation is not ready before `dependency` has finished, in whatever queue that is; null
  // is ignored. Add dependencies before the operation is given to a queue. Operations that wait for
  // each other in a circle stay unready until one of them is cancelled.
  void addDependency(std::shared_ptr<Operation> dependency);
  void removeDependency(const std::shared_ptr<Operation>& dependency);
  // In the order in which they were added; none any more once this operation has finished.
  std::vector<std::shared_ptr<Operation>> dependencies() const;

  // Runs once, after the operation has finished and its observers have heard of it, on the thread
  // that announces it; then it is released. Too late once the operation has finished. An empty one
  // takes the last away.
  void setCompletionBlock(std::function<void()> block);

  // Blocks until the operation has announced that it is finished; false when the deadline passed
  // first.
  bool waitUntilFinished(Deadline deadline = std::nullopt) const;

  // The operation keeps the observer; null is ignored. A removed observer may still hear an
  // announcement that was under way.
  void addObserver(std::shared_ptr<OperationObserver> observer);
  void removeObserver(const std::shared_ptr<OperationObserver>& observer);

 protected:
  // Tell the observers, on the calling thread, that `key` is about to change, and that it has.
  void willChangeValue(std::string_view key);
  void didChangeValue(std::string_view key);

 private:
  friend class internal::OperationQueueCore;
  using Observers = std::vector<std::shared_ptr<OperationObserver>>;

  std::shared_ptr<const Observers> observers() const;
  void announceReadiness();
  void dependencyFinished(const Operation* dependency);
  void completeOnce();

  std::atomic<bool> executing_{false};
  std::atomic<bool> finished_{false};
  std::atomic<bool> cancelled_{false};
  std::atomic<bool> started_{false};
  std::atomic<bool> enqueued_{false};  // taken by a queue, once and for all
  std::atomic<bool> dependenciesFinished_{true};

  mutable Mutex mutex_;
  mutable ConditionVariable completed_;
  // The finish has been announced to everyone.
  bool isComplete_ PAPERLOOM_GUARDED_BY(mutex_) = false;
  std::shared_ptr<const Observers> observers_ PAPERLOOM_GUARDED_BY(mutex_);
  std::function<void()> completionBlock_ PAPERLOOM_GUARDED_BY(mutex_);
  std::vector<std::shared_ptr<Operation>> dependencies_ PAPERLOOM_GUARDED_BY(mutex_);
  // Of the dependencies.
  std::unordered_set<const Operation*> unfinished_ PAPERLOOM_GUARDED_BY(mutex_);
  std::vector<std::weak_ptr<Operation>> dependents_ PAPERLOOM_GUARDED_BY(mutex_);
};

}  // namespace paperloom
