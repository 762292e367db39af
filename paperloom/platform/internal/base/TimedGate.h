#pragma once

#include <chrono>
#include <utility>

#include "paperloom/platform/Mutex.h"

namespace paperloom::internal {

// A lock that is waited for no longer than until a given time. Once entered it is put into a Hold:
//
//   if (!gate.enter(deadline)) return;
//   const TimedGate::Hold hold(gate);
class PAPERLOOM_THREAD_SAFETY(capability("gate")) TimedGate {
 public:
  using Time = std::chrono::steady_clock::time_point;

  // Leaves at its end what was entered before.
  class PAPERLOOM_THREAD_SAFETY(scoped_lockable) Hold {
   public:
    explicit Hold(TimedGate& gate) PAPERLOOM_REQUIRES(gate) : gate_(gate) {}
    ~Hold() PAPERLOOM_RELEASE() { gate_.leave(); }
    Hold(const Hold&) = delete;
    Hold& operator=(const Hold&) = delete;

   private:
    TimedGate& gate_;
  };

  bool enter(Time deadline) PAPERLOOM_TRY_ACQUIRE(true) PAPERLOOM_UNCHECKED_LOCKING {
    const MutexLock lock(mutex_);
    while (taken_) {
      // The last look is after the time has come, for one that came with it.
      if (!free_.waitUntil(mutex_, deadline) && taken_) return false;
    }
    taken_ = true;
    return true;
  }

  // Waits for nobody.
  bool tryEnter() PAPERLOOM_TRY_ACQUIRE(true) PAPERLOOM_UNCHECKED_LOCKING {
    const MutexLock lock(mutex_);
    return !std::exchange(taken_, true);
  }

  void leave() PAPERLOOM_RELEASE() PAPERLOOM_UNCHECKED_LOCKING {
    {
      const MutexLock lock(mutex_);
      taken_ = false;
    }
    free_.notifyOne();
  }

 private:
  Mutex mutex_;
  ConditionVariable free_;
  bool taken_ PAPERLOOM_GUARDED_BY(mutex_) = false;
};

}  // namespace paperloom::internal
