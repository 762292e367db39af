#pragma once

#include <optional>
#include <utility>

#include "paperloom/platform/Mutex.h"

namespace paperloom {

// What a shared instance is going to be made of, until it is made. Safe from any thread.
template <class T>
class FirstUse {
 public:
  // That of the class's instance; never destroyed.
  template <class Shared>
  static FirstUse& of() {
    static auto* const one = new FirstUse();
    return *one;
  }

  // Replaces what was set before; false, and no change, once it has been taken.
  bool set(T value) {
    const MutexLock lock(mutex_);
    if (taken_) return false;
    value_ = std::move(value);
    return true;
  }

  // What was set last, else what `make` makes.
  template <class Make>
  T takeOr(Make make) {
    const MutexLock lock(mutex_);
    taken_ = true;
    return value_ ? std::move(*value_) : make();
  }

 private:
  Mutex mutex_;
  bool taken_ PAPERLOOM_GUARDED_BY(mutex_) = false;
  std::optional<T> value_ PAPERLOOM_GUARDED_BY(mutex_);
};

}  // namespace paperloom
