#pragma once

#include <utility>

#include "paperloom/platform/Mutex.h"

namespace paperloom {

// A value that any thread may read and change.
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

  // `change` must be short and call nothing that may come back.
  template <class Change>
  void change(const Change& change) {
    const MutexLock lock(mutex_);
    change(value_);
  }

 private:
  mutable Mutex mutex_;
  T value_ PAPERLOOM_GUARDED_BY(mutex_) = {};
};

}  // namespace paperloom
