#include "paperloom/platform/internal/json/NumbersOutOfRange.h"

#include <simdjson.h>

#include <algorithm>

namespace paperloom::internal {
namespace {

constexpr std::string_view digits = "0123456789";

// Takes digits off the front; whether there were any.
bool takeDigits(std::string_view& rest) {
  const std::size_t count = std::min(rest.find_first_not_of(digits), rest.size());
  rest.remove_prefix(count);
  return count > 0;
}

// RFC 8259 section 6: number = [ minus ] int [ frac ] [ exp ]
bool isNumber(std::string_view token) {
  if (token.starts_with('-')) token.remove_prefix(1);
  if (token.starts_with('0')) {
    token.remove_prefix(1);
  } else if (!takeDigits(token)) {
    return false;
  }
  if (token.starts_with('.')) {
    token.remove_prefix(1);
    if (!takeDigits(token)) return false;
  }
  if (token.starts_with('e') || token.starts_with('E')) {
    token.remove_prefix(1);
    if (token.starts_with('+') || token.starts_with('-')) token.remove_prefix(1);
    if (!takeDigits(token)) return false;
  }
  return token.empty();
}

// Shorter ones than any number out of range: 1e309, 9223372036854775808.
bool mayBeOutOfRange(std::string_view token) {
  return token.size() >= 19 || (token.size() >= 5 && token.find_first_of("eE") != token.npos);
}

// The end of the characters from `at` on of which a number may consist; `at` if there are none.
std::size_t endOfToken(std::string_view text, std::size_t at) {
  const auto belongs = [](char c) {
    return (c >= '0' && c <= '9') || c == '-' || c == '+' || c == '.' || c == 'e' || c == 'E';
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
  std::string copy;
  simdjson::dom::parser decoder;
  std::size_t at = 0;
  while (at < text.size()) {
    if (text[at] == '"') {
      at = endOfString(text, at);
      continue;
    }
    const std::size_t end = endOfToken(text, at);
    const std::string_view token = text.substr(at, end - at);
    // What is no number at all stays: the decoder is to refuse it.
    if (mayBeOutOfRange(token) && isNumber(token) &&
        decoder.parse(token.data(), token.size()).error() == simdjson::NUMBER_ERROR) {
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
