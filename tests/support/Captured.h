#pragma once

#include <atomic>
#include <future>
#include <memory>
#include <utility>

#include "tests/support/Wait.h"

namespace paperloom::test {

// Calls `start` with a callback and waits for what the callback is given first.
template <class T, class Start>
T captured(Start start) {
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
  return await(std::move(future));
}

}  // namespace paperloom::test
