#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

namespace paperloom::internal {

// A Range field that asks for one range of bytes (RFC 9110 section 14.1.2).
class ByteRange {
 public:
  // Nothing for several ranges, other units and malformed values.
  static std::optional<ByteRange> parse(std::string_view field);

  struct Span {
    std::size_t first = 0;
    std::size_t length = 0;  // at least 1
  };
  // The bytes meant in a body of that size; nothing when it has none of them.
  std::optional<Span> within(std::size_t size) const;

 private:
  std::optional<std::size_t> first_;  // none: the last `last_` bytes
  std::optional<std::size_t> last_;   // none: up to the end
};

}  // namespace paperloom::internal
