#include "paperloom/platform/internal/http/ByteRange.h"

#include <algorithm>

#include "paperloom/platform/HTTPHeaders.h"
#include "paperloom/platform/internal/http/HTTPFieldSyntax.h"

namespace paperloom::internal {

std::optional<ByteRange> ByteRange::parse(std::string_view field) {
  constexpr std::string_view unit = "bytes=";
  // RFC 9110 section 14.1.1: range units are compared without regard to case.
  if (!equalsIgnoringCase(field.substr(0, unit.size()), unit)) return std::nullopt;
  const std::string_view text = trimmed(field.substr(unit.size()));
  const std::size_t dash = text.find('-');
  if (dash == std::string_view::npos) return std::nullopt;
  const std::string_view first = text.substr(0, dash);
  const std::string_view last = text.substr(dash + 1);
  ByteRange range;
  range.first_ = byteCount(first);
  range.last_ = byteCount(last);
  // Section 14.1.2: "-5" is a suffix, "5-" goes to the end, and "-" or "5-2" is no range. Several
  // ranges fail here, too: one with a comma is no number.
  if (!range.first_ && !first.empty()) return std::nullopt;
  if (!range.last_ && (!last.empty() || first.empty())) return std::nullopt;
  if (range.first_ && range.last_ && *range.last_ < *range.first_) return std::nullopt;
  return range;
}

std::optional<ByteRange::Span> ByteRange::within(std::size_t size) const {
  // The last bytes; all of them when there are fewer than were asked for.
  if (!first_) {
    const std::size_t length = std::min(*last_, size);
    if (length == 0) return std::nullopt;
    return Span{size - length, length};
  }
  if (*first_ >= size) return std::nullopt;
  const std::size_t last = std::min(last_.value_or(size - 1), size - 1);
  return Span{*first_, last - *first_ + 1};
}

}  // namespace paperloom::internal
