#include "paperloom/platform/Date.h"

#include <atomic>

namespace paperloom {
namespace {

std::atomic<Date (*)()> clockInPlace = nullptr;

}  // namespace

Date currentDate() {
  if (auto* const clock = clockInPlace.load()) return clock();
  return std::chrono::floor<std::chrono::milliseconds>(std::chrono::system_clock::now());
}

void setClock(Date (*clock)()) { clockInPlace = clock; }

}  // namespace paperloom
