#pragma once

#include <utility>

#include "paperloom/platform/Mutex.h"

namespace paperloom {

// A value that any thread may read and replace, as a whole.
template <class T>
class Guarded {
 public:
  Guarded() = default;
  explicit Guarded(T value) : value_(std::move(value)) {}

  T get() const {
    const MutexLock lock(mutex_);
    return value_;
  }

  // The old value is let go after the lock: its end may call in here.
  void set(T value) {
    const MutexLock lock(mutex_);
    std::swap(value_, value);
  }

 private:
  mutable Mutex mutex_;
  T value_ PAPERLOOM_GUARDED_BY(mutex_) = {};
};

}  // namespace paperloom
