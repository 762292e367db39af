#include "paperloom/identity/Token.h"

#include "paperloom/model/JSONParsing.h"

#include <cstdint>

namespace paperloom {
namespace {

Date addingSeconds(Date date, std::int64_t seconds) {
  std::int64_t milliseconds = 0;
  if (__builtin_mul_overflow(seconds, std::int64_t{1000}, &milliseconds) ||
      __builtin_add_overflow(date.time_since_epoch().count(), milliseconds, &milliseconds)) {
    return seconds < 0 ? Date::min() : Date::max();
  }
  return Date(Date::duration(milliseconds));
}

}  // namespace

Result<std::shared_ptr<const TokenProtocol>> Token::parse(const JSONObject& json, Date now) {
  const auto accessToken = json.string(Key::accessToken);
  const auto expiresIn = json.integer(Key::expiresIn);
  const auto idToken = json.string(Key::idToken);
  const auto livefyreToken = json.string(Key::livefyreToken);
  const auto tokenType = json.string(Key::tokenType);
  if (!accessToken || !expiresIn || !idToken || !livefyreToken || !tokenType) {
    return parsingFailed(json, "failed to parse token");
  }
  return std::make_shared<const Token>(Fields{
      .accessToken = *accessToken,
      .expiresIn = addingSeconds(now, *expiresIn),
      .idToken = *idToken,
      .livefyreToken = *livefyreToken,
      .tokenType = *tokenType,
      .refreshToken = json.string(Key::refreshToken),
  });
}

}  // namespace paperloom
