#pragma once

#include <chrono>
#include <future>
#include <stdexcept>
#include <thread>

#include "paperloom/platform/DispatchQueue.h"

namespace paperloom::test {

// How long a test waits for what must come; only a guard against hanging.
inline constexpr std::chrono::seconds patience{20};

// Pumps the main queue until `done()` or until patience runs out; says which.
template <class Predicate>
bool pumpUntil(Predicate done) {
  const auto deadline = std::chrono::steady_clock::now() + patience;
  while (!done()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    if (DispatchQueue::main().runPending() == 0) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
  }
  return true;
}

// The value a callback promised; throws, and so fails the test, when it does not come.
template <class T>
T await(std::future<T> future) {
  if (future.wait_for(patience) != std::future_status::ready) {
    throw std::runtime_error("no callback came");
  }
  return future.get();
}

}  // namespace paperloom::test
