#pragma once

#include <deque>
#include <functional>

#include "paperloom/platform/Mutex.h"

namespace paperloom::internal {

// Threads for work that takes long and waits for nothing, such as decoding: as many as the machine
// has cores, shared by the whole process, started as they are needed and never ended. Safe from any
// thread; jobs begin in the order in which they were added.
class WorkPool {
 public:
  static WorkPool& shared();

  using Job = std::function<void()>;
  void add(Job job);

 private:
  explicit WorkPool(unsigned threads) : most_(threads) {}
  void work();

  const unsigned most_;
  Mutex mutex_;
  ConditionVariable added_;
  std::deque<Job> jobs_ PAPERLOOM_GUARDED_BY(mutex_);
  unsigned threads_ PAPERLOOM_GUARDED_BY(mutex_) = 0;
  unsigned idle_ PAPERLOOM_GUARDED_BY(mutex_) = 0;
};

}  // namespace paperloom::internal
