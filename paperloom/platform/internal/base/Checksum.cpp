#include "paperloom/platform/internal/base/Checksum.h"

#include <xxhash.h>

namespace paperloom::internal {

std::uint64_t checksum(std::string_view bytes, std::uint64_t seed) {
  return XXH3_64bits_withSeed(bytes.data(), bytes.size(), seed);
}

}  // namespace paperloom::internal
