#pragma once

#include <atomic>
#include <optional>
#include <utility>

namespace paperloom {

// An operation's outcome: none until it is stored, then the same for good. Safe from any thread.
template <class T>
class OperationResult {
 public:
  const std::optional<T>& value() const {
    static const std::optional<T> none;
    return isStored_ ? value_ : none;
  }

  // Keeps the first outcome; false, and nothing changes, for any later one.
  bool store(T value) {
    if (isClaimed_.exchange(true)) return false;
    value_ = std::move(value);
    isStored_ = true;
    return true;
  }

 private:
  std::atomic<bool> isClaimed_{false};
  std::atomic<bool> isStored_{false};
  std::optional<T> value_;
};

}  // namespace paperloom
