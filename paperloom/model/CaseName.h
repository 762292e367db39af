#pragma once

#include <string_view>
#include <type_traits>
#include <variant>

namespace paperloom {

// The name of the alternative that a variant holds: each alternative carries its own, as `name`.
template <class... Alternatives>
std::string_view caseName(const std::variant<Alternatives...>& variant) {
  return std::visit(
      [](const auto& held) { return std::string_view(std::decay_t<decltype(held)>::name); },
      variant);
}

}  // namespace paperloom
