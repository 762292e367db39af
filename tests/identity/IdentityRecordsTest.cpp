#include <gtest/gtest.h>

#include <string>
#include <string_view>

#include "paperloom/identity/AuthenticationLoginCredentialType.h"
#include "paperloom/identity/IdentityParsers.h"
#include "paperloom/identity/Token.h"

namespace paperloom::test {
namespace {

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
  const struct {
    std::string_view document;
    std::string_view outcome;
  } rows[] = {
      {R"({"accessToken":"a","refreshToken":"r","idToken":"i","more":1})", "record"},
      {R"({"accessToken":"a","refreshToken":"r","idToken":null})", missing},
      {R"({"accessToken":"a","refreshToken":7,"idToken":"i"})", missing},
      {R"({"refreshToken":"r","idToken":"i"})", missing},
      {R"([])", notAnObject},
      {R"("text")", notAnObject},
      {R"({"accessToken":"a")", "decoder"},
      {"", "decoder"},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(outcome(makeAuthenticationParser(), row.document), row.outcome) << row.document;
  }
}

// A document with one member replaced or, with an empty replacement, left out.
std::string registrationWith(std::string_view key, std::string_view value) {
  const std::pair<std::string_view, std::string_view> members[] = {
      {"@id", R"("/accounts/1")"},
      {"token",
       R"({"accessToken":"a","expiresIn":3600,"idToken":"i","livefyreToken":"l","tokenType":"t"})"},
      {"email", R"("e")"},
      {"firstName", R"("f")"},
      {"lastName", R"("l")"},
      {"marketingEmailOptIn", "true"},
      {"marketingPhoneOptIn", "false"},
      {"marketingPostOptIn", "false"},
      {"marketingSMSOptIn", "false"}};
  std::string document = "{";
  for (const auto& [name, usual] : members) {
    const std::string_view written = name == key ? value : usual;
    if (written.empty()) continue;
    document.append(document.size() > 1 ? "," : "").append("\"").append(name);
    document.append("\":").append(written);
  }
  return document + "}";
}

TEST(IdentityRecords, registrationNeedsAllItsMembers) {
  const std::string_view failed = "failed parsing the registration response";
  const struct {
    std::string_view key;
    std::string_view value;
    std::string_view outcome;
  } rows[] = {
      {"", "", "record"},
      {"@id", "", failed},
      {"token", "[]", failed},
      {"email", "1", failed},
      {"firstName", "", failed},
      {"lastName", "null", failed},
      {"marketingEmailOptIn", "1", failed},
      {"marketingPhoneOptIn", R"("true")", failed},
      {"marketingPostOptIn", "", failed},
      {"marketingSMSOptIn", "", failed},
      {"token", "{}", "failed to parse token"},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(outcome(makeRegistrationParser(), registrationWith(row.key, row.value)), row.outcome)
        << row.key << " " << row.value;
  }
  EXPECT_EQ(outcome(makeRegistrationParser(), "null"),
            "failed to parse registration response JSON");
}

TEST(IdentityRecords, tokenEndsItsSecondsAfterNow) {
  const Date now(std::chrono::seconds(1'000'000'000));
  const struct {
    std::string_view seconds;
    std::optional<Date> end;
  } rows[] = {
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
  for (const auto& row : rows) {
    const auto document = JSONDocument::parse(
        R"({"accessToken":"a","idToken":"i","livefyreToken":"l","tokenType":"t","expiresIn":)" +
        std::string(row.seconds) + R"(,"refreshToken":1})");
    ASSERT_TRUE(document) << row.seconds;
    const auto token = Token::parse(*document->object(), now);
    ASSERT_EQ(token.has_value(), row.end.has_value()) << row.seconds;
    if (!token) continue;
    EXPECT_EQ((*token)->expiresIn(), *row.end) << row.seconds;
    EXPECT_FALSE((*token)->refreshToken());
  }
}

TEST(IdentityRecords, credentialTypesAreTakenByTheirExactRawValue) {
  using Type = AuthenticationLoginCredentialType;
  EXPECT_EQ(fromRawValue<Type>("KX_NUMBER"), Type::kxNumber);
  EXPECT_FALSE(fromRawValue<Type>("Email_Password"));
}

}  // namespace
}  // namespace paperloom::test
