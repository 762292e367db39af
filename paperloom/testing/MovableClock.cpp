#include "paperloom/testing/MovableClock.h"

#include <atomic>
#include <stdexcept>

namespace paperloom::test {
namespace {

std::atomic<bool> taken = false;
std::atomic<std::chrono::milliseconds::rep> present = 0;

Date readPresent() { return Date(std::chrono::milliseconds(present)); }

}  // namespace

MovableClock::MovableClock(Date start) {
  if (taken.exchange(true)) throw std::logic_error("there is a movable clock already");
  present = start.time_since_epoch().count();
  setClock(readPresent);
}

MovableClock::~MovableClock() {
  setClock(nullptr);
  taken = false;
}

Date MovableClock::now() const { return readPresent(); }
void MovableClock::advance(std::chrono::milliseconds by) { present += by.count(); }

}  // namespace paperloom::test
