#include "paperloom/platform/internal/json/NumbersOutOfRange.h"

#include <simdjson.h>

#include <algorithm>

namespace paperloom::internal {
namespace {

constexpr std::size_t shortestOutOfRange = 5;  // 1e309

bool isDigit(char c) { return c >= '0' && c <= '9'; }

// The token with its runs of digits cut down to two each: no less a number by the grammar of
// RFC 8259 section 6, a superfluous leading zero included, and never out of range.
std::string shapeOf(std::string_view token) {
  std::string shape;
  std::size_t run = 0;
  for (const char c : token) {
    run = isDigit(c) ? run + 1 : 0;
    if (run <= 2) shape += c;
  }
  return shape;
}

std::size_t endOfNumber(std::string_view text, std::size_t at) {
  const auto belongs = [](char c) {
    return isDigit(c) || c == '-' || c == '+' || c == '.' || c == 'e' || c == 'E';
  };
  while (at < text.size() && belongs(text[at])) ++at;
  return at;
}

// A number in a text is text.
std::size_t endOfString(std::string_view text, std::size_t quote) {
  std::size_t at = quote + 1;
  while (at < text.size() && text[at] != '"') at += text[at] == '\\' ? 2 : 1;
  return std::min(at + 1, text.size());
}

}  // namespace

std::string nullingNumbersOutOfRange(std::string_view text, std::size_t padding) {
  simdjson::dom::parser decoder;
  const auto decodes = [&](std::string_view token) {
    return decoder.parse(token.data(), token.size()).error() == simdjson::SUCCESS;
  };
  std::string copy;
  for (std::size_t at = 0; at < text.size();) {
    if (text[at] == '"') {
      at = endOfString(text, at);
      continue;
    }
    const std::size_t end = endOfNumber(text, at);
    const std::string_view token = text.substr(at, end - at);
    // What is no number at all stays: the decoder is to refuse it.
    if (token.size() >= shortestOutOfRange && !decodes(token) && decodes(shapeOf(token))) {
      if (copy.empty()) {
        copy.reserve(text.size() + padding);
        copy = text;
      }
      // In place, so that whatever else is wrong with the text stays where it was.
      copy.replace(at, token.size(), token.size(), ' ').replace(at, 4, "null");
    }
    at = std::max(end, at + 1);
  }
  return copy;
}

}  // namespace paperloom::internal
