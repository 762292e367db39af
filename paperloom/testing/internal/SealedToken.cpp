#include "paperloom/testing/internal/SealedToken.h"

#include <openssl/evp.h>

#include <array>
#include <nlohmann/json.hpp>
#include <random>

namespace paperloom::sample {
namespace {

using nlohmann::json;

// The accounts behind the signature are samples, and so is its key.
constexpr std::string_view key = "the sample service on this computer";
constexpr std::string_view hexadecimal = "0123456789abcdef";

std::string digitsOf(std::string_view bytes) {
  std::string digits;
  for (const char byte : bytes) {
    const auto value = static_cast<unsigned char>(byte);
    digits += hexadecimal[value >> 4];
    digits += hexadecimal[value & 15U];
  }
  return digits;
}

std::optional<std::string> bytesOf(std::string_view digits) {
  if (digits.size() % 2 != 0) return std::nullopt;
  std::string bytes;
  for (std::size_t i = 0; i < digits.size(); i += 2) {
    const auto high = hexadecimal.find(digits[i]);
    const auto low = hexadecimal.find(digits[i + 1]);
    if (high == std::string_view::npos || low == std::string_view::npos) return std::nullopt;
    bytes += static_cast<char>(high << 4 | low);
  }
  return bytes;
}

// The key before the text makes a signature of this function, which tells nothing of its state.
std::string signature(std::string_view text) {
  static EVP_MD* const sha3 = EVP_MD_fetch(nullptr, "SHA3-256", nullptr);
  const std::string signedText = std::string(key).append(text);
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
  EVP_Digest(signedText.data(), signedText.size(), digest.data(), nullptr, sha3, nullptr);
  return digitsOf({reinterpret_cast<const char*>(digest.data()), 16});
}

}  // namespace

std::string SealedToken::seal() const {
  const auto end = std::chrono::duration_cast<std::chrono::milliseconds>(expiry.time_since_epoch());
  const json payload = {kind, credentialType, identifier, end.count(), serial};
  const std::string text = kind + "-" + digitsOf(payload.dump());
  return text + "-" + signature(text);
}

std::optional<SealedToken> SealedToken::open(std::string_view token) {
  const auto mark = token.rfind('-');
  const auto start = token.find('-') + 1;
  if (mark == std::string_view::npos || start > mark) return std::nullopt;
  const std::string expected = signature(token.substr(0, mark));
  const std::string_view given = token.substr(mark + 1);
  if (given != expected) return std::nullopt;
  // Signed here, so of this form.
  const auto bytes = bytesOf(token.substr(start, mark - start));
  const json payload = json::parse(bytes.value_or(""), nullptr, false);
  if (!payload.is_array() || payload.size() != 5) return std::nullopt;
  return SealedToken{payload[0].get<std::string>(), payload[1].get<std::string>(),
                     payload[2].get<std::string>(),
                     Time(std::chrono::milliseconds(payload[3].get<std::int64_t>())),
                     payload[4].get<std::string>()};
}

std::string randomDigits(std::size_t bytes) {
  std::random_device source;
  std::string random;
  for (std::size_t i = 0; i < bytes; ++i) random += static_cast<char>(source() & 0xFFU);
  return digitsOf(random);
}

}  // namespace paperloom::sample
