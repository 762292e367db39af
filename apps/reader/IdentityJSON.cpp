#include "apps/reader/IdentityJSON.h"

namespace paperloom::reader {
namespace {

JSON person(const RegistrationResponseModelProtocol& registration) {
  return {{"id", registration.id()},
          {"email", registration.email()},
          {"firstName", registration.firstName()},
          {"lastName", registration.lastName()},
          {"marketingEmailOptIn", registration.marketingEmailOptIn()},
          {"marketingPhoneOptIn", registration.marketingPhoneOptIn()},
          {"marketingPostOptIn", registration.marketingPostOptIn()},
          {"marketingSMSOptIn", registration.marketingSMSOptIn()}};
}

}  // namespace

JSON toJSON(const ContentAuthorisationProtocol& authorisation) {
  return {{"accessToken", authorisation.accessToken()},
          {"refreshToken", authorisation.refreshToken()},
          {"idToken", authorisation.idToken()}};
}

JSON toJSON(const RegistrationResponseModelProtocol& registration) {
  const TokenProtocol& token = *registration.token();
  JSON json = {{"id", registration.id()},
               {"token",
                {{"accessToken", token.accessToken()},
                 {"expiresIn", toJSON(token.expiresIn())},
                 {"idToken", token.idToken()},
                 {"livefyreToken", token.livefyreToken()},
                 {"tokenType", token.tokenType()},
                 {"refreshToken", token.refreshToken() ? JSON(*token.refreshToken()) : JSON()}}}};
  json.update(person(registration));
  return json;
}

JSON toJSON(const LoginOperationResult& result) { return {{"case", result.caseName()}}; }

JSON toJSON(const CheckEntitlementOperationResult& result) { return {{"case", result.caseName()}}; }

JSON toJSON(const RefreshTokenThenCheckEntitlementsOperationResult& result) {
  using Success = RefreshTokenThenCheckEntitlementsOperationResult::Success;
  JSON json = {{"case", result.caseName()}};
  if (const auto* success = std::get_if<Success>(&result.value)) {
    json["premium"] = success->premium == Premium::premium ? "premium" : "notPremium";
  }
  return json;
}

JSON toJSON(const UserRegistrationResult& result) {
  JSON json = {{"case", result.caseName()}};
  std::visit(
      [&](const auto& outcome) {
        if constexpr (requires { outcome.registrationResult; }) {
          json["registrationResult"] = person(*outcome.registrationResult);
        }
      },
      result.value);
  return json;
}

}  // namespace paperloom::reader
