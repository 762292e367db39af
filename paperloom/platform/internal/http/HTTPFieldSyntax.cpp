#include "paperloom/platform/internal/http/HTTPFieldSyntax.h"

#include <algorithm>
#include <charconv>
#include <cstdint>

namespace paperloom::internal {
namespace {

// RFC 9111 section 1.2.2: what is larger counts as this.
constexpr std::int64_t deltaSecondsLimit = std::int64_t{1} << 31;

bool isDigits(std::string_view text) {
  return !text.empty() &&
         std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

// The position after the quoted string that starts at `start`, or `start` when it never ends.
std::size_t endOfQuotedString(std::string_view text, std::size_t start) {
  for (std::size_t i = start + 1; i < text.size(); ++i) {
    if (text[i] == '\\') {
      ++i;
    } else if (text[i] == '"') {
      return i + 1;
    }
  }
  return start;
}

}  // namespace

bool isToken(std::string_view text) {
  return !text.empty() && std::all_of(text.begin(), text.end(), [](char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
           std::string_view("!#$%&'*+-.^_`|~").find(c) != std::string_view::npos;
  });
}

std::string_view trimmed(std::string_view text) {
  const std::size_t first = text.find_first_not_of(" \t");
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

std::string lowercased(std::string_view text) {
  std::string lower(text);
  for (char& c : lower) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return lower;
}

// RFC 9110 section 5.6.1.2: empty members are ignored, and commas in quotes part nothing.
std::vector<std::string_view> listMembers(std::string_view value) {
  std::vector<std::string_view> members;
  bool quotesAreClosed = true;  // false after the first open quote: it would be searched in vain
  std::size_t start = 0;
  const auto close = [&](std::size_t end) {
    const std::string_view member = trimmed(value.substr(start, end - start));
    if (!member.empty()) members.push_back(member);
    start = end + 1;
  };
  for (std::size_t i = 0; i < value.size();) {
    if (value[i] == '"' && quotesAreClosed) {
      const std::size_t end = endOfQuotedString(value, i);
      quotesAreClosed = end != i;
      i = std::max(end, i + 1);
      continue;
    }
    if (value[i] == ',') close(i);
    ++i;
  }
  if (start <= value.size()) close(value.size());
  return members;
}

std::optional<std::string> unquoted(std::string_view text) {
  if (text.size() < 2 || text.front() != '"' || endOfQuotedString(text, 0) != text.size()) {
    return std::nullopt;
  }
  std::string result;
  for (std::size_t i = 1; i + 1 < text.size(); ++i) {
    if (text[i] == '\\') ++i;
    result.push_back(text[i]);
  }
  return result;
}

std::optional<std::chrono::seconds> deltaSeconds(std::string_view text) {
  if (!isDigits(text)) return std::nullopt;
  std::int64_t value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc{}) value = deltaSecondsLimit;
  return std::chrono::seconds(std::min(value, deltaSecondsLimit));
}

std::optional<std::size_t> byteCount(std::string_view text) {
  if (!isDigits(text)) return std::nullopt;
  std::size_t value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc{}) return std::nullopt;
  return value;
}

// Dates come from servers and from disk: neither may make the subtraction overflow.
std::chrono::seconds secondsBetween(Date from, Date to) {
  constexpr Date limit{std::chrono::sys_days(std::chrono::year(10000) / 1 / 1)};
  const Date earliest{-limit.time_since_epoch()};
  return std::chrono::floor<std::chrono::seconds>(std::clamp(to, earliest, limit) -
                                                  std::clamp(from, earliest, limit));
}

}  // namespace paperloom::internal
