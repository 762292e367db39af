#pragma once

#include <cstddef>
#include <memory>
#include <vector>

#include "paperloom/platform/Export.h"
#include "paperloom/platform/Operation.h"

namespace paperloom {

namespace internal {
class OperationQueueCore;
}

// Runs operations on threads of its own: each is started once, as soon as it is ready and the limit
// leaves it a place, in the order in which operations became ready; it is counted until it
// announces that it is finished, and then released. An operation that waits for an answer keeps its
// place but no thread. One that is cancelled before its start needs no place: it finishes at once,
// on one of the queue's threads, though all others be held up in main().
//
// Threads are made as they are needed and kept until the queue goes: with the default limit about
// as many as there are processors, with a limit of the host's own up to that limit, at most 64, and
// one for cancelled operations. An operation that blocks in main() until others of its queue have
// finished holds one of them.
//
// The destructor refuses further operations and cancels every one; those not yet started finish
// without running, on the calling thread or the queue's, also when the queue is suspended; it waits
// for every main() under way, but not for answers that are still to come: such operations are
// released unfinished. A queue may be destroyed by one of its own operations; nothing is waited for
// then.
//
// Safe from any thread.
class PAPERLOOM_EXPORT OperationQueue {
 public:
  using Deadline = Operation::Deadline;
  static constexpr int defaultMaxConcurrentOperationCount = -1;

  OperationQueue();
  ~OperationQueue();
  OperationQueue(const OperationQueue&) = delete;
  OperationQueue& operator=(const OperationQueue&) = delete;

  // False, and nothing happens, for null and for an operation that is finished or has been given to
  // a queue before.
  bool addOperation(std::shared_ptr<Operation> operation);
  // Adds them all, as addOperation() does; then, if asked to, waits until all of them are finished,
  // those of other queues included. False when the deadline passed first.
  bool addOperations(const std::vector<std::shared_ptr<Operation>>& operations,
                     bool waitUntilFinished, Deadline deadline = std::nullopt);

  // How many operations may be started and unfinished at once; 0 starts none. With the default
  // there is no limit beside the threads.
  int maxConcurrentOperationCount() const;
  void setMaxConcurrentOperationCount(int count);

  // A suspended queue starts nothing, not even what is cancelled; what has been started, or was
  // just being started, goes on.
  bool isSuspended() const;
  void setSuspended(bool suspended);

  // Cancels the operations that are not finished. None of those not yet started runs, whatever its
  // dependencies do meanwhile.
  void cancelAllOperations();

  // The operations that are not finished, waiting ones included.
  std::size_t operationCount() const;

  // Blocks until the queue is empty; false when the deadline passed first. Completion blocks may
  // still be running.
  bool waitUntilAllOperationsAreFinished(Deadline deadline = std::nullopt) const;

 private:
  std::shared_ptr<internal::OperationQueueCore> core_;
};

}  // namespace paperloom
