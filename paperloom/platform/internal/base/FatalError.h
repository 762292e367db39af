#pragma once

#include <string_view>

namespace paperloom {

// Prints `message` to standard error and aborts: for programming errors only.
[[noreturn]] void fatalError(std::string_view message);

}  // namespace paperloom
