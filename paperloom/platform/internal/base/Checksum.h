#pragma once

#include <cstdint>
#include <string_view>

namespace paperloom::internal {

// A fast 64-bit checksum, described in docs/cache-format.md. Bytes that differ within one aligned
// group of eight always give another value, whatever the seed. No protection against forgery.
std::uint64_t checksum(std::string_view bytes, std::uint64_t seed);

}  // namespace paperloom::internal
