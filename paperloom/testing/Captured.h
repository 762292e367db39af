#pragma once

#include <atomic>
#include <future>
#include <memory>
#include <string>
#include <utility>

#include "paperloom/testing/Waiting.h"

namespace paperloom::test {

// Calls `start` with a callback and waits for what the callback is given first, as a `T` made of
// it. When nothing comes in time, this throws std::runtime_error, as await() does. The callback may
// be called on any thread but the one that waits here, or before `start` returns.
template <class T, class Start>
T captured(Start start, const std::string& what = "a callback", const char* file = __builtin_FILE(),
           int line = __builtin_LINE()) {
  struct Shared {
    std::promise<T> promise;
    std::atomic_flag answered{};
  };
  auto shared = std::make_shared<Shared>();
  auto future = shared->promise.get_future();
  start([shared](auto&&... given) {
    if (!shared->answered.test_and_set()) {
      shared->promise.set_value(T{std::forward<decltype(given)>(given)...});
    }
  });
  return await(std::move(future), what, file, line);
}

}  // namespace paperloom::test
