#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace paperloom::internal {

// A copy of `text` in which every number that is one by RFC 8259 section 6 and that the decoder
// nevertheless refuses, because no 64-bit integer or no double holds it, is null. The copy is a
// JSON text exactly if `text` is one, and as long. It has room for `padding` further bytes. Empty
// when there is no such number.
std::string nullingNumbersOutOfRange(std::string_view text, std::size_t padding);

}  // namespace paperloom::internal
