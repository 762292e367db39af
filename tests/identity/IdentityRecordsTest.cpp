#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

#include "paperloom/identity/IdentityParsers.h"
#include "paperloom/identity/Token.h"

namespace paperloom::test {
namespace {

using nlohmann::json;

template <class Parser>
std::string outcome(const Parser& parser, std::string_view document) {
  const auto parsed = parser->parse(Data(std::string(document)));
  if (parsed) return "record";
  if (const auto* own = std::get_if<PaperloomError>(&parsed.error())) return own->details();
  return "decoder";
}

TEST(IdentityRecords, authorisationNeedsItsThreeTokens) {
  const std::string_view missing = "Content Authorisation missing one or more tokens";
  const std::string_view notAnObject = "failed to parse content authorisation JSON";
  const std::pair<std::string_view, std::string_view> rows[] = {
      {R"({"accessToken":"a","refreshToken":"r","idToken":"i","more":1})", "record"},
      {R"({"accessToken":"a","refreshToken":"r","idToken":null})", missing},
      {R"({"accessToken":"a","refreshToken":7,"idToken":"i"})", missing},
      {R"({"refreshToken":"r","idToken":"i"})", missing},
      {R"([])", notAnObject},
      {R"("text")", notAnObject},
      {R"({"accessToken":"a")", "decoder"},
      {"", "decoder"},
  };
  for (const auto& [document, expected] : rows) {
    EXPECT_EQ(outcome(makeAuthenticationParser(), document), expected) << document;
  }
}

TEST(IdentityRecords, registrationNeedsAllItsMembers) {
  const std::string_view failed = "failed parsing the registration response";
  const json good = json::parse(R"({
      "@id": "/accounts/1", "email": "e", "firstName": "f", "lastName": "l",
      "token": {"accessToken": "a", "expiresIn": 3600, "idToken": "i", "livefyreToken": "l",
                "tokenType": "t"},
      "marketingEmailOptIn": true, "marketingPhoneOptIn": false, "marketingPostOptIn": false,
      "marketingSMSOptIn": false})");
  EXPECT_EQ(outcome(makeRegistrationParser(), good.dump()), "record");
  for (const auto& [key, usual] : good.items()) {
    for (const json& wrong : {json(nullptr), json(1), json::array()}) {
      json document = good;
      document[key] = wrong;
      EXPECT_EQ(outcome(makeRegistrationParser(), document.dump()), failed) << key << wrong;
    }
    json document = good;
    document.erase(key);
    EXPECT_EQ(outcome(makeRegistrationParser(), document.dump()), failed) << key;
  }
  json document = good;
  document["token"] = json::object();
  EXPECT_EQ(outcome(makeRegistrationParser(), document.dump()), "failed to parse token");
  EXPECT_EQ(outcome(makeRegistrationParser(), "null"),
            "failed to parse registration response JSON");
}

TEST(IdentityRecords, tokenEndsItsSecondsAfterNow) {
  const Date now(std::chrono::seconds(1'000'000'000));
  const std::pair<std::string, std::optional<Date>> rows[] = {
      {"3600", now + std::chrono::hours(1)},
      {"-5", now - std::chrono::seconds(5)},
      {"9223372036854775807", Date::max()},
      {"9223372036854775", Date::max()},
      {"-9223372036854775808", Date::min()},
      {"9223372036854775808", std::nullopt},
      {"3600.5", std::nullopt},
      {R"("3600")", std::nullopt},
      {"null", std::nullopt},
  };
  for (const auto& [seconds, end] : rows) {
    const auto document = JSONDocument::parse(
        R"({"accessToken":"a","idToken":"i","livefyreToken":"l","tokenType":"t","expiresIn":)" +
        seconds + R"(,"refreshToken":1})");
    ASSERT_TRUE(document) << seconds;
    const auto token = Token::parse(*document->object(), now);
    ASSERT_EQ(token.has_value(), end.has_value()) << seconds;
    if (!token) continue;
    EXPECT_EQ((*token)->expiresIn(), *end) << seconds;
    EXPECT_FALSE((*token)->refreshToken());
  }
}

}  // namespace
}  // namespace paperloom::test
