#include "paperloom/platform/internal/base/Checksum.h"

#include <array>
#include <bit>
#include <cstddef>
#include <cstring>

namespace paperloom::internal {
namespace {

constexpr std::uint64_t primeA = 0x9E3779B185EBCA87;
constexpr std::uint64_t primeB = 0xC2B2AE3D27D4EB4F;

std::uint64_t word(const char* bytes, std::size_t count = 8) {
  std::uint64_t value = 0;
  std::memcpy(&value, bytes, count);
  if constexpr (std::endian::native == std::endian::big) value = __builtin_bswap64(value);
  return value;
}

// Each step maps words and states one to one, so no single changed word can get lost.
std::uint64_t absorb(std::uint64_t state, std::uint64_t value) {
  return std::rotl(state + value * primeB, 31) * primeA;
}

}  // namespace

std::uint64_t checksum(std::string_view bytes, std::uint64_t seed) {
  const char* next = bytes.data();
  std::size_t left = bytes.size();
  std::uint64_t sum = seed ^ (bytes.size() * primeA);
  if (left >= 32) {
    // Four lanes, because one would wait for its multiplications.
    std::array<std::uint64_t, 4> lanes{sum, sum + primeA, sum ^ primeB, sum - primeB};
    for (; left >= 32; next += 32, left -= 32) {
      lanes[0] = absorb(lanes[0], word(next));
      lanes[1] = absorb(lanes[1], word(next + 8));
      lanes[2] = absorb(lanes[2], word(next + 16));
      lanes[3] = absorb(lanes[3], word(next + 24));
    }
    for (const std::uint64_t lane : lanes) sum = absorb(sum, lane);
  }
  for (; left >= 8; next += 8, left -= 8) sum = absorb(sum, word(next));
  if (left > 0) sum = absorb(sum, word(next, left));
  sum = (sum ^ (sum >> 33)) * primeB;
  return sum ^ (sum >> 29);
}

}  // namespace paperloom::internal
