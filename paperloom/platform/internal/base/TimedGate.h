#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace paperloom::internal {

// A lock that is waited for no longer than until a given time.
class TimedGate {
 public:
  using Time = std::chrono::steady_clock::time_point;

  // Holds the gate while it lives, if it is true.
  class Hold {
   public:
    Hold(TimedGate& gate, Time deadline) : gate_(gate), held_(gate.enter(deadline)) {}
    ~Hold() {
      if (held_) gate_.leave();
    }
    Hold(const Hold&) = delete;
    Hold& operator=(const Hold&) = delete;
    explicit operator bool() const { return held_; }

   private:
    TimedGate& gate_;
    const bool held_;
  };

 private:
  bool enter(Time deadline) {
    std::unique_lock lock(mutex_);
    if (!free_.wait_until(lock, deadline, [this] { return !taken_; })) return false;
    taken_ = true;
    return true;
  }

  void leave() {
    {
      const std::lock_guard lock(mutex_);
      taken_ = false;
    }
    free_.notify_one();
  }

  std::mutex mutex_;
  std::condition_variable free_;
  bool taken_ = false;
};

}  // namespace paperloom::internal
