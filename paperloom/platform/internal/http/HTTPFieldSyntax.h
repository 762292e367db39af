#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "paperloom/platform/Date.h"

// The small grammars that header fields share (RFC 9110 section 5.6).
namespace paperloom::internal {

// Section 5.6.2: what methods and field names are made of.
bool isToken(std::string_view text);

// What neither a field nor a chunk's line may hold.
inline bool isControl(char c) {
  const auto byte = static_cast<unsigned char>(c);
  return (byte < 0x20 && byte != '\t') || byte == 0x7F;
}

// Without the spaces and tabs at both ends.
std::string_view trimmed(std::string_view text);

std::string lowercased(std::string_view text);

// The members of a comma-separated list, trimmed, without the empty ones (section 5.6.1). A comma
// inside a quoted string separates nothing; a quote that is never closed is an ordinary character.
std::vector<std::string_view> listMembers(std::string_view value);

// The text of a quoted string that spans all of `text` (section 5.6.4); nothing for anything else.
std::optional<std::string> unquoted(std::string_view text);

// Digits alone, as a number of seconds; one too large for 31 bits counts as 2^31 (RFC 9111 section
// 1.2.2). Nothing for anything else.
std::optional<std::chrono::seconds> deltaSeconds(std::string_view text);

// Digits alone, as a number of bytes that fits.
std::optional<std::size_t> byteCount(std::string_view text);

// Whole seconds from one instant to the other, towards minus infinity. Instants beyond the year
// 9999, which only a damaged entry names, count as its end.
std::chrono::seconds secondsBetween(Date from, Date to);

}  // namespace paperloom::internal
