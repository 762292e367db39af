#pragma once

#include <chrono>
#include <future>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>

#include "paperloom/platform/DispatchQueue.h"

namespace paperloom::test {

// How long a test waits for what must come; only a guard against hanging.
inline constexpr std::chrono::seconds patience{10};

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

// The value that is promised. When it does not come in time, this throws std::runtime_error, which
// says what was waited for and where.
template <class T>
T await(std::future<T> future, const std::string& what = "an answer",
        const char* file = __builtin_FILE(), int line = __builtin_LINE()) {
  if (future.wait_for(patience) != std::future_status::ready) {
    throw std::runtime_error(what + " did not come, which " + file + ":" + std::to_string(line) +
                             " waits for");
  }
  return future.get();
}

}  // namespace paperloom::test
