#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

namespace paperloom::internal {

// A body as it grows, up to a limit. It costs the limit and 8 MB at most, although it moves to a
// larger place now and then and the allocator keeps those that it left: beyond the first megabytes
// it takes room for all that the limit allows, which costs nothing before it is used.
class BodyBuffer {
 public:
  explicit BodyBuffer(std::int64_t limit) : limit_(static_cast<std::size_t>(limit)) {}

  // Makes room for that many bytes, at most the limit.
  void reserve(std::int64_t size);
  // False, and nothing is appended, beyond the limit or what memory there is.
  bool append(std::string_view bytes);

  std::string_view view() const { return bytes_; }
  std::string take() { return std::move(bytes_); }

 private:
  const std::size_t limit_;
  std::string bytes_;
};

}  // namespace paperloom::internal
