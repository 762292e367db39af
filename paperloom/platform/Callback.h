#pragma once

#include <functional>
#include <type_traits>
#include <utility>

namespace paperloom {

// Functions that a host hands over, all of them: callbacks, completions, filters, preparations,
// parsers, observers, listeners, work for a queue.
//
// One may be empty, unless its header says otherwise: that is nobody to tell. None may throw. An
// exception that leaves one ends the process by std::terminate(), at the place that has thrown it
// and on whichever thread that is, the host's own included: between it and the host's code lies the
// library's, and on most threads there is no code of the host's at all. A host that wants to go on
// catches within.
//
// Calls such a function.
template <class... Values>
void call(const std::function<void(Values...)>& callback,
          std::type_identity_t<Values>... values) noexcept {
  if (callback) callback(std::forward<Values>(values)...);
}

}  // namespace paperloom
