#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

#include "apps/reader/IdentityJSON.h"
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

// Every value is its own key, but for the opt-ins, which differ in turn.
const std::string authorisation =
    R"({"accessToken":"accessToken","refreshToken":"refreshToken","idToken":"idToken"})";

std::string registration(const std::string& optIns) {
  static constexpr const char* kinds[] = {"Email", "Phone", "Post", "SMS"};
  std::string document =
      R"({"@id":"@id","token":{"accessToken":"accessToken","expiresIn":3600,"idToken":"idToken",)"
      R"("livefyreToken":"livefyreToken","tokenType":"tokenType","refreshToken":"refreshToken"},)"
      R"("email":"email","firstName":"firstName","lastName":"lastName")";
  for (std::size_t i = 0; i < optIns.size(); ++i) {
    document +=
        std::string(",\"marketing") + kinds[i] + "OptIn\":" + (optIns[i] == '1' ? "true" : "false");
  }
  return document + "}";
}

TEST(IdentityRecordsTest, holdEachValueInItsPlace) {
  const auto tokens = makeAuthenticationParser()->parse(Data(authorisation));
  ASSERT_TRUE(tokens);
  EXPECT_EQ(reader::toJSON(**tokens).dump(), authorisation);
  for (const std::string optIns : {"1000", "0100", "0010", "0001"}) {
    const Date before = currentDate();
    const auto parsed = makeRegistrationParser()->parse(Data(registration(optIns)));
    ASSERT_TRUE(parsed);
    const Date end = (*parsed)->token()->expiresIn();
    EXPECT_TRUE(before + std::chrono::hours(1) <= end &&
                end <= currentDate() + std::chrono::hours(1));
    std::string expected = registration(optIns).replace(2, 3, "id");
    expected.replace(expected.find("3600"), 4, reader::toJSON(end).dump());
    EXPECT_EQ(reader::toJSON(**parsed).dump(), expected);
  }
}

TEST(IdentityRecordsTest, authorisationNeedsItsThreeTokens) {
  const std::string_view missing = "Content Authorisation missing one or more tokens";
  const std::string_view notAnObject = "failed to parse content authorisation JSON";
  const std::pair<std::string_view, std::string_view> rows[] = {
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

TEST(IdentityRecordsTest, registrationNeedsAllItsMembers) {
  const std::string_view failed = "failed parsing the registration response";
  const json good = json::parse(registration("1000"));
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
  for (const auto& [key, usual] : good["token"].items()) {
    json document = good;
    document["token"].erase(key);
    EXPECT_EQ(outcome(makeRegistrationParser(), document.dump()),
              key == "refreshToken" ? "record" : "failed to parse token")
        << key;
  }
  EXPECT_EQ(outcome(makeRegistrationParser(), "null"),
            "failed to parse registration response JSON");
}

TEST(IdentityRecordsTest, tokenEndsItsSecondsAfterNow) {
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
