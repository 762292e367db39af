#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

// What a lock guards, in a form that clang checks (-Wthread-safety); other compilers skip it.
#if defined(__clang__)
#define PAPERLOOM_THREAD_SAFETY(x) __attribute__((x))
#else
#define PAPERLOOM_THREAD_SAFETY(x)
#endif
#define PAPERLOOM_GUARDED_BY(mutex) PAPERLOOM_THREAD_SAFETY(guarded_by(mutex))
#define PAPERLOOM_POINTEE_GUARDED_BY(mutex) PAPERLOOM_THREAD_SAFETY(pt_guarded_by(mutex))
#define PAPERLOOM_REQUIRES(...) PAPERLOOM_THREAD_SAFETY(requires_capability(__VA_ARGS__))
#define PAPERLOOM_EXCLUDES(...) PAPERLOOM_THREAD_SAFETY(locks_excluded(__VA_ARGS__))
#define PAPERLOOM_ACQUIRE(...) PAPERLOOM_THREAD_SAFETY(acquire_capability(__VA_ARGS__))
#define PAPERLOOM_TRY_ACQUIRE(...) PAPERLOOM_THREAD_SAFETY(try_acquire_capability(__VA_ARGS__))
#define PAPERLOOM_RELEASE(...) PAPERLOOM_THREAD_SAFETY(release_capability(__VA_ARGS__))
#define PAPERLOOM_ACQUIRED_AFTER(...) PAPERLOOM_THREAD_SAFETY(acquired_after(__VA_ARGS__))
#define PAPERLOOM_UNCHECKED_LOCKING PAPERLOOM_THREAD_SAFETY(no_thread_safety_analysis)

namespace paperloom {

// std::mutex for the compiler to check. Every function on any thread.
class PAPERLOOM_THREAD_SAFETY(capability("mutex")) Mutex {
 public:
  void lock() PAPERLOOM_ACQUIRE() { mutex_.lock(); }
  bool try_lock() PAPERLOOM_TRY_ACQUIRE(true) { return mutex_.try_lock(); }
  void unlock() PAPERLOOM_RELEASE() { mutex_.unlock(); }

 private:
  friend class ConditionVariable;
  std::mutex mutex_;
};

// Holds a mutex while it lives, but for the time between unlock() and lock().
class [[nodiscard]] PAPERLOOM_THREAD_SAFETY(scoped_lockable) MutexLock {
 public:
  explicit MutexLock(Mutex& mutex) PAPERLOOM_ACQUIRE(mutex) : mutex_(mutex) { mutex_.lock(); }
  ~MutexLock() PAPERLOOM_RELEASE() {
    if (held_) mutex_.unlock();
  }
  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;

  // Give the mutex up for a while, and take it again; on the thread that holds it.
  void unlock() PAPERLOOM_RELEASE() {
    mutex_.unlock();
    held_ = false;
  }
  void lock() PAPERLOOM_ACQUIRE() {
    mutex_.lock();
    held_ = true;
  }

 private:
  Mutex& mutex_;
  bool held_ = true;
};

// std::condition_variable over a Mutex that the caller holds. Waits may end without a cause: ask
// for the condition in a loop, in the function that holds the lock, where the compiler sees it. Any
// number of threads may wait, and any thread may notify.
class ConditionVariable {
 public:
  void wait(Mutex& mutex) PAPERLOOM_REQUIRES(mutex) {
    std::unique_lock<std::mutex> lock(mutex.mutex_, std::adopt_lock);
    condition_.wait(lock);
    lock.release();
  }
  // False when the time came first.
  bool waitUntil(Mutex& mutex, std::chrono::steady_clock::time_point time)
      PAPERLOOM_REQUIRES(mutex) {
    std::unique_lock<std::mutex> lock(mutex.mutex_, std::adopt_lock);
    const bool inTime = condition_.wait_until(lock, time) == std::cv_status::no_timeout;
    lock.release();
    return inTime;
  }
  void notifyOne() { condition_.notify_one(); }
  void notifyAll() { condition_.notify_all(); }

 private:
  std::condition_variable condition_;
};

}  // namespace paperloom
