#pragma once

#include "paperloom/platform/Mutex.h"

namespace paperloom::internal {

// Counts what is under way elsewhere, for one who must not end before it. Safe from any thread.
class Outstanding {
 public:
  void begin() {
    const MutexLock lock(mutex_);
    ++count_;
  }
  // The last thing that is done to it: who waits may destroy it at once.
  void end() {
    const MutexLock lock(mutex_);
    if (--count_ == 0) none_.notifyAll();
  }
  void waitForAll() {
    const MutexLock lock(mutex_);
    while (count_ != 0) none_.wait(mutex_);
  }

 private:
  Mutex mutex_;
  ConditionVariable none_;
  int count_ PAPERLOOM_GUARDED_BY(mutex_) = 0;
};

}  // namespace paperloom::internal
