#include "paperloom/identity/AuthDataCoordinator.h"

#include <string_view>
#include <utility>

#include "paperloom/identity/IdentityParsers.h"
#include "paperloom/network/AuthSessionManager.h"
#include "paperloom/platform/Callback.h"
#include "paperloom/platform/Events.h"
#include "paperloom/platform/FatalError.h"
#include "paperloom/platform/FirstUse.h"
#include "paperloom/platform/JSONWriter.h"

namespace paperloom {
namespace {

constexpr const char* authWithoutManager = "an auth data coordinator needs a session manager";

using AuthManagerOfShared = FirstUse<std::shared_ptr<AuthSessionManagerProtocol>>;

using AuthorisationResult = RequestResult<std::shared_ptr<const ContentAuthorisationProtocol>>;

event::TokensRefreshed::Outcome outcomeOf(const AuthorisationResult& result) {
  using Outcome = event::TokensRefreshed::Outcome;
  if (result.index() == 0) return Outcome::refreshed;
  const auto* failed = std::get_if<request::FailedStatusCode>(&result);
  return failed != nullptr && failed->statusCode == 401 ? Outcome::refused : Outcome::failed;
}

// The service answers by its status alone.
struct EntitlementOfOutcome {
  RequestResult<Entitlement> operator()(const request::Success<Nothing>&) const {
    return request::Success<Entitlement>{Entitlement::premium};
  }
  RequestResult<Entitlement> operator()(request::FailedStatusCode failed) const {
    if (failed.statusCode == 403) return request::Success<Entitlement>{Entitlement::notPremium};
    return failed;
  }
  RequestResult<Entitlement> operator()(request::NetworkError error) const { return error; }
  RequestResult<Entitlement> operator()(request::InternalError error) const { return error; }
  RequestResult<Entitlement> operator()(const request::ParsingError&) const {
    fatalError("this call should not parse");
  }
};

}  // namespace

AuthDataCoordinator& AuthDataCoordinator::shared() {
  static auto& instance =
      *new AuthDataCoordinator(AuthManagerOfShared::of<AuthDataCoordinator>().takeOr(
          [] { return std::make_shared<AuthSessionManager>(); }));
  return instance;
}

bool AuthDataCoordinator::configureShared(
    std::shared_ptr<AuthSessionManagerProtocol> authSessionManager) {
  return AuthManagerOfShared::of<AuthDataCoordinator>().set(
      required(std::move(authSessionManager), authWithoutManager));
}

AuthDataCoordinator::AuthDataCoordinator(
    std::shared_ptr<AuthSessionManagerProtocol> authSessionManager)
    : authSessionManager_(required(std::move(authSessionManager), authWithoutManager)) {}

std::optional<URL> AuthDataCoordinator::baseURL() const { return baseURL_.get(); }

void AuthDataCoordinator::setBaseURL(std::optional<URL> url) { baseURL_.set(std::move(url)); }

void AuthDataCoordinator::login(const std::string& identifier, const std::string& authKey,
                                AuthenticationLoginCredentialType credentialType,
                                AuthorisationCompletion completion) {
  const auto base = baseURL();
  if (!base) return call(completion, request::InternalError{});
  postForAuthorisation(base->appendingPathComponent("token"),
                       writeJSONObject({{"identifier", identifier},
                                        {"authKey", authKey},
                                        {"credentialType", rawValue(credentialType)}}),
                       std::move(completion));
}

void AuthDataCoordinator::refreshToken(const std::string& refreshToken,
                                       AuthorisationCompletion completion) {
  const auto base = baseURL();
  if (!base) return call(completion, request::InternalError{});
  const auto told = [completion = std::move(completion)](const AuthorisationResult& result) {
    Events::tell([&] { return event::TokensRefreshed{outcomeOf(result)}; });
    call(completion, result);
  };
  postForAuthorisation(base->appendingPathComponent("refreshToken"),
                       writeJSONObject({{"refreshToken", refreshToken}}), told);
}

void AuthDataCoordinator::postForAuthorisation(const URL& url, std::optional<Data> body,
                                               AuthorisationCompletion completion) {
  if (!body) return call(completion, request::InternalError{});
  authSessionManager_->postJSONData<AuthenticationParser::Item>(
      std::move(*body), url, std::make_shared<const AuthenticationParser>(), std::move(completion));
}

void AuthDataCoordinator::checkEntitlement(const std::string& accessToken,
                                           EntitlementCompletion completion) {
  const auto base = baseURL();
  if (!base) return;  // no answer at all: hosts rely on it
  authSessionManager_->getRequest(
      base->appendingPathComponent("entitlement"), {{"Authorization", accessToken}},
      [completion = std::move(completion)](const RequestResult<Nothing>& outcome) {
        call(completion, std::visit(EntitlementOfOutcome{}, outcome));
      });
}

}  // namespace paperloom
