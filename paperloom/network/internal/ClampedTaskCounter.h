#pragma once

#include <algorithm>
#include <atomic>
#include <cstdint>

#include "paperloom/network/internal/TaskCounter.h"
#include "paperloom/platform/NetworkActivityIndicator.h"

namespace paperloom {

// Counts the requests of the identity side in flight and writes the network activity indicator at
// once, on the thread that starts or completes one. A stray completion leaves the count at 0. Both
// stop the process when the arithmetic overflows.
class ClampedTaskCounter {
 public:
  void increment() {
    change([](std::int64_t count) { return checkedSum(count, 1); });
  }
  void decrement() {
    change([](std::int64_t count) { return std::max<std::int64_t>(checkedSum(count, -1), 0); });
  }

  std::int64_t value() const { return count_; }

 private:
  template <class Next>
  void change(Next next) {
    std::int64_t count = count_;
    while (!count_.compare_exchange_weak(count, next(count))) {
    }
    // Whoever writes last has looked again since: the indicator ends up as the count says.
    do {
      count = count_;
      NetworkActivityIndicator::shared().setVisible(count > 0);
    } while ((count_ > 0) != (count > 0));
  }

  std::atomic<std::int64_t> count_{0};
};

}  // namespace paperloom
