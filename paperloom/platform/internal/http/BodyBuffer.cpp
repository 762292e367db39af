#include "paperloom/platform/internal/http/BodyBuffer.h"

#include <algorithm>
#include <new>
#include <stdexcept>

namespace paperloom::internal {
namespace {

// With a little room behind it a JSON body is decoded without a copy.
constexpr std::size_t room = 64;

constexpr std::size_t largestStep = 4 * 1024 * 1024;
// Beyond this even room that is never used may not be had.
constexpr std::size_t largestRoom = std::size_t{1} << 30;

}  // namespace

void BodyBuffer::reserve(std::int64_t size) {
  bytes_.reserve(static_cast<std::size_t>(size) + room);
}

bool BodyBuffer::append(std::string_view bytes) try {
  if (bytes.size() > limit_ - bytes_.size()) return false;
  const std::size_t size = bytes_.size() + bytes.size();
  if (size + room > bytes_.capacity()) {
    std::size_t larger = std::max(size, 4 * bytes_.capacity());
    if (larger > largestStep) larger = std::max(larger, largestRoom);
    bytes_.reserve(std::min(larger, limit_) + room);
  }
  bytes_.append(bytes);
  return true;
} catch (const std::bad_alloc&) {
  return false;
} catch (const std::length_error&) {
  return false;
}

}  // namespace paperloom::internal
