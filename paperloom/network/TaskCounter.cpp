#include "paperloom/network/internal/TaskCounter.h"

#include "paperloom/platform/DispatchQueue.h"
#include "paperloom/platform/FatalError.h"
#include "paperloom/platform/NetworkActivityIndicator.h"

namespace paperloom {

std::int64_t checkedSum(std::int64_t a, std::int64_t b) {
  std::int64_t sum = 0;
  if (__builtin_add_overflow(a, b, &sum)) fatalError("the count of tasks overflowed");
  return sum;
}

void TaskCounter::add(std::int64_t change) {
  std::int64_t before = count_;
  while (!count_.compare_exchange_weak(before, checkedSum(before, change))) {
  }
  // An update that still waits will read this count too.
  if (updateQueued_.exchange(true)) return;
  DispatchQueue::main().async([self = shared_from_this()] {
    self->updateQueued_ = false;
    NetworkActivityIndicator::shared().setVisible(self->count_ > 0);
  });
}

}  // namespace paperloom
