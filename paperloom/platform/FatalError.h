#pragma once

#include <memory>
#include <string_view>

#include "paperloom/platform/Export.h"

namespace paperloom {

// Prints `message` to standard error and aborts: for programming errors only.
[[noreturn]] PAPERLOOM_EXPORT void fatalError(std::string_view message);

// The pointer, which an object cannot do without: null stops the program with `message`.
template <class Pointer>
Pointer required(Pointer pointer, std::string_view message) {
  if (!pointer) fatalError(message);
  return pointer;
}

}  // namespace paperloom
