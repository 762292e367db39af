#include "paperloom/platform/internal/http/ByteRange.h"

#include <algorithm>

#include "paperloom/platform/HTTPHeaders.h"
#include "paperloom/platform/internal/http/HTTPFieldSyntax.h"

namespace paperloom::internal {

std::optional<ByteRange> ByteRange::parse(std::string_view field) {
  constexpr std::string_view unit = "bytes=";
  if (!equalsIgnoringCase(field.substr(0, unit.size()), unit)) return std::nullopt;
  const std::string_view text = trimmed(field.substr(unit.size()));
  const std::size_t dash = text.find('-');
  if (dash == std::string_view::npos) return std::nullopt;
  const std::string_view first = text.substr(0, dash);
  const std::string_view last = text.substr(dash + 1);
  ByteRange range;
  range.first_ = byteCount(first);
  range.last_ = byteCount(last);
  if (!range.first_ && !first.empty()) return std::nullopt;
  if (!range.last_ && (!last.empty() || first.empty())) return std::nullopt;
  if (range.first_ && range.last_ && *range.last_ < *range.first_) return std::nullopt;
  return range;
}

std::optional<ByteRange::Span> ByteRange::within(std::size_t size) const {
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
