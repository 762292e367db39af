#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

namespace paperloom::sample {

// What a token says. It is carried, signed, in the token itself, so that the next service of this
// program honours it too: an embedded service lives no longer than one command of the reader.
struct SealedToken {
  using Time = std::chrono::system_clock::time_point;

  std::string kind;  // "access" or "refresh"
  std::string credentialType;
  std::string identifier;
  Time expiry;
  std::string serial;  // sets it apart from every other token

  std::string seal() const;
  // Nothing for a text that is no token with a good signature.
  static std::optional<SealedToken> open(std::string_view token);
};

// So many random bytes in hexadecimal digits.
std::string randomDigits(std::size_t bytes);

}  // namespace paperloom::sample
