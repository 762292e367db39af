#pragma once

#include <cstddef>
#include <list>
#include <memory>
#include <string_view>
#include <thread>
#include <unordered_map>
#include <vector>

#include "paperloom/platform/Mutex.h"
#include "paperloom/platform/Operation.h"

namespace paperloom::internal {

// A queue's book-keeping and threads. It outlives its OperationQueue where a thread or an
// announcement is still inside it.
//
// - The mutex guards every member. Operations are called with the lock released, so an entry may
//   have left, or changed, whenever a call comes back: it is looked up again.
// - An operation that reported ready stands in one of two lines. Those in `ready_` need a place,
//   those in `cancelled_` none. Its turn come, it is asked again whether it is ready, and started.
// - No wake-up is missed: whoever puts an entry into a line or frees a place wakes threads before
//   it releases the lock, and a thread waits only when it has found nothing under the same lock.
// - What is to be cancelled, and whatever a closed queue holds, is not started before its cancel()
//   has been called: one that ends early must not let its dependents run.
class OperationQueueCore : public OperationObserver,
                           public std::enable_shared_from_this<OperationQueueCore> {
 public:
  bool add(std::shared_ptr<Operation> operation);
  void cancelAll();
  // Refuses additions, cancels and finishes what has not started, waits for the threads and lets
  // go of every operation.
  void close();

  int limit() const;
  void setLimit(int limit);
  bool isSuspended() const;
  void setSuspended(bool suspended);
  std::size_t operationCount() const;
  bool waitUntilEmpty(const Operation::Deadline& deadline) const;

  void didChangeValue(Operation& operation, std::string_view key) override;
  void didCancel(Operation& operation) override;

 private:
  struct Entry;
  using Line = std::list<Entry*>;
  enum class Stage { waiting, queued, asking, started };
  struct Entry {
    std::shared_ptr<Operation> operation;
    Stage stage = Stage::waiting;
    bool holdsPlace = false;
    bool announcedMeanwhile = false;  // while it was being asked
    int cancellations = 0;            // of the whole queue, under way
    Line* line = nullptr;             // where it is queued
    Line::iterator turn = {};
  };

  Entry* find(const Operation& operation) PAPERLOOM_REQUIRES(mutex_);
  std::size_t freePlaces() const PAPERLOOM_REQUIRES(mutex_);
  std::size_t maximumThreads() const PAPERLOOM_REQUIRES(mutex_);
  void enqueue(Entry& entry, bool asFirst = false) PAPERLOOM_REQUIRES(mutex_);
  void leaveLine(Entry& entry) PAPERLOOM_REQUIRES(mutex_);
  void releasePlace(Entry& entry) PAPERLOOM_REQUIRES(mutex_);
  bool mayStart(const Entry& entry) const PAPERLOOM_REQUIRES(mutex_);
  void wakeThreads() PAPERLOOM_REQUIRES(mutex_);
  Entry* nextEntry(bool onlyCancelled) PAPERLOOM_REQUIRES(mutex_);
  // Whether the entry, asked with the lock released, is to be started; otherwise it waits anew.
  bool isToStart(Entry& entry, bool isReady) PAPERLOOM_REQUIRES(mutex_);
  // Starts what may be started until nothing is left; releases the lock for each.
  void startQueued(bool onlyCancelled) PAPERLOOM_REQUIRES(mutex_);

  void runThread();
  void runSpareThread();
  void operationBecameReady(Operation& operation);
  void operationFinished(Operation& operation);

  mutable Mutex mutex_;
  ConditionVariable work_;
  ConditionVariable spareWork_;
  mutable ConditionVariable empty_;
  std::unordered_map<const Operation*, Entry> entries_ PAPERLOOM_GUARDED_BY(mutex_);
  Line ready_ PAPERLOOM_GUARDED_BY(mutex_);
  Line cancelled_ PAPERLOOM_GUARDED_BY(mutex_);
  std::size_t placesHeld_ PAPERLOOM_GUARDED_BY(mutex_) = 0;
  int limit_ PAPERLOOM_GUARDED_BY(mutex_) = -1;
  bool suspended_ PAPERLOOM_GUARDED_BY(mutex_) = false;
  bool closed_ PAPERLOOM_GUARDED_BY(mutex_) = false;
  std::size_t idleThreads_ PAPERLOOM_GUARDED_BY(mutex_) = 0;
  std::vector<std::thread> threads_ PAPERLOOM_GUARDED_BY(mutex_);
  // Finishes cancelled operations while all others are held up.
  std::thread spareThread_ PAPERLOOM_GUARDED_BY(mutex_);
};

}  // namespace paperloom::internal
