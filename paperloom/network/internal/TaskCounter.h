#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

namespace paperloom {

// Counts a manager's requests in flight and keeps the network activity indicator in step with it.
// The indicator is written on the main queue, from the count at that time. Shared with the
// completions, which may outlive the manager.
class TaskCounter : public std::enable_shared_from_this<TaskCounter> {
 public:
  // Both stop the process when the count leaves the range of its type.
  void increment() { add(1); }
  void decrement() { add(-1); }

  std::int64_t value() const { return count_; }

 private:
  void add(std::int64_t change);

  std::atomic<std::int64_t> count_{0};
  std::atomic<bool> updateQueued_{false};
};

// a + b; stops the process when the sum overflows.
std::int64_t checkedSum(std::int64_t a, std::int64_t b);

}  // namespace paperloom
