#pragma once

#include <cstdint>
#include <string_view>

namespace paperloom::internal {

// XXH3 with 64 bits, the checksum of everything that is kept on disk. No protection against
// forgery.
std::uint64_t checksum(std::string_view bytes, std::uint64_t seed);

}  // namespace paperloom::internal
