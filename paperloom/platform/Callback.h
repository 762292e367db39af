#pragma once

#include <functional>
#include <type_traits>
#include <utility>

namespace paperloom {

// Calls a host's function. An empty one is nobody to tell.
template <class... Values>
void call(const std::function<void(Values...)>& callback, std::type_identity_t<Values>... values) {
  if (callback) callback(std::forward<Values>(values)...);
}

}  // namespace paperloom
