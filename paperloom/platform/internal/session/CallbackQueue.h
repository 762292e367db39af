#pragma once

#include <deque>
#include <functional>
#include <thread>

#include "paperloom/platform/Mutex.h"

namespace paperloom::internal {

// Jobs that run one at a time in the order they were given, on whichever thread offers itself by
// run(). Safe from any thread.
class CallbackQueue {
 public:
  using Job = std::function<void()>;

  // After finish() the job is dropped.
  void add(Job job);

  // Whether jobs wait and no thread is at them.
  bool needsRunner() const;

  // Runs and destroys jobs until none is left, unless another thread is at it already.
  void run();

  // Runs what is left and ends the queue: no job starts after it returns. Called once, within a job
  // or when no thread is in run().
  void finish();
  bool isFinished() const;

 private:
  Job take();

  mutable Mutex mutex_;
  std::deque<Job> jobs_ PAPERLOOM_GUARDED_BY(mutex_);
  std::thread::id runner_ PAPERLOOM_GUARDED_BY(mutex_);
  bool finished_ PAPERLOOM_GUARDED_BY(mutex_) = false;
};

}  // namespace paperloom::internal
