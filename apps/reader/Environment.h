#pragma once

#include <cstdlib>
#include <string_view>

namespace paperloom::reader {

// The environment's variable of that name; empty when there is none.
inline std::string_view variable(const char* name) {
  const char* value = std::getenv(name);
  return value == nullptr ? std::string_view() : std::string_view(value);
}

}  // namespace paperloom::reader
