#pragma once

#include <chrono>

#include "paperloom/platform/Date.h"

namespace paperloom::test {

// The library's clock in the test's hand. While this lives, currentDate() stands still and moves
// only as the test says: stored documents age, access tokens of the sample service run out, and
// nobody waits. One at a time in a process; a second throws std::logic_error. Any thread.
class MovableClock {
 public:
  explicit MovableClock(Date start = currentDate());
  ~MovableClock();
  MovableClock(const MovableClock&) = delete;
  MovableClock& operator=(const MovableClock&) = delete;

  Date now() const;
  // Puts the clock ahead, or back by a negative time.
  void advance(std::chrono::milliseconds by);
};

}  // namespace paperloom::test
