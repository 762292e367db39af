#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <memory>
#include <mutex>
#include <string_view>
#include <thread>
#include <unordered_map>
#include <vector>

#include "paperloom/platform/Operation.h"

namespace paperloom::internal {

// A queue's book-keeping and threads. It outlives its OperationQueue where a thread or an
// announcement is still inside it. Operations are called with the lock released.
class OperationQueueCore : public OperationObserver,
                           public std::enable_shared_from_this<OperationQueueCore> {
 public:
  bool add(std::shared_ptr<Operation> operation);
  void cancelAll();
  // Cancels and starts what is left, waits for the threads and lets go of every operation.
  void close();

  int limit() const;
  void setLimit(int limit);
  bool isSuspended() const;
  void setSuspended(bool suspended);
  std::size_t operationCount() const;
  bool waitUntilEmpty(const Operation::Deadline& deadline) const;

  void didChangeValue(Operation& operation, std::string_view key) override;

 private:
  // An operation that reported ready is queued, asked again when its turn comes, and started.
  enum class Stage { waiting, queued, asking, started };
  struct Entry {
    std::shared_ptr<Operation> operation;
    Stage stage = Stage::waiting;
    bool holdsPlace = false;
    bool announcedMeanwhile = false;
  };

  // These need the lock.
  std::size_t freePlaces() const;
  std::size_t maximumThreads() const;
  void enqueue(Entry& entry);
  void wakeThreads();
  void makeThread();
  Entry* nextEntry();

  // Starts what may be started until nothing is left, with `lock` held in between.
  void startQueued(std::unique_lock<std::mutex>& lock);
  void runThread();
  void operationBecameReady(Operation& operation);
  void operationFinished(Operation& operation);

  mutable std::mutex mutex_;
  std::condition_variable work_;
  mutable std::condition_variable empty_;
  std::unordered_map<const Operation*, Entry> entries_;
  // May name operations that have left meanwhile; nextEntry() skips them.
  std::deque<const Operation*> ready_;
  std::deque<const Operation*> cancelled_;  // need no place
  std::size_t placesHeld_ = 0;
  int limit_ = -1;
  bool suspended_ = false;
  bool closed_ = false;
  std::size_t idleThreads_ = 0;
  std::vector<std::thread> threads_;
};

}  // namespace paperloom::internal
