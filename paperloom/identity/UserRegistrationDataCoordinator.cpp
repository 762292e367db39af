#include "paperloom/identity/UserRegistrationDataCoordinator.h"

#include <utility>

#include "paperloom/identity/IdentityParsers.h"
#include "paperloom/network/AuthSessionManager.h"
#include "paperloom/platform/Callback.h"
#include "paperloom/platform/FatalError.h"
#include "paperloom/platform/FirstUse.h"
#include "paperloom/platform/JSONWriter.h"

namespace paperloom {
namespace {

constexpr const char* userRegistrationWithoutManager =
    "a user registration data coordinator needs a session manager";

using AuthManagerOfShared = FirstUse<std::shared_ptr<AuthSessionManagerProtocol>>;

}  // namespace

UserRegistrationDataCoordinator& UserRegistrationDataCoordinator::shared() {
  static auto& instance = *new UserRegistrationDataCoordinator(
      AuthManagerOfShared::of<UserRegistrationDataCoordinator>().takeOr(
          [] { return std::make_shared<AuthSessionManager>(); }));
  return instance;
}

bool UserRegistrationDataCoordinator::configureShared(
    std::shared_ptr<AuthSessionManagerProtocol> sessionManager) {
  return AuthManagerOfShared::of<UserRegistrationDataCoordinator>().set(
      required(std::move(sessionManager), userRegistrationWithoutManager));
}

UserRegistrationDataCoordinator::UserRegistrationDataCoordinator(
    std::shared_ptr<AuthSessionManagerProtocol> sessionManager)
    : sessionManager_(required(std::move(sessionManager), userRegistrationWithoutManager)) {}

std::optional<URL> UserRegistrationDataCoordinator::baseURL() const { return baseURL_.get(); }

void UserRegistrationDataCoordinator::setBaseURL(std::optional<URL> url) {
  baseURL_.set(std::move(url));
}

void UserRegistrationDataCoordinator::registerAccount(const std::string& email,
                                                      const std::string& authKey,
                                                      const std::string& firstName,
                                                      const std::string& lastName,
                                                      bool marketingOptIn, Completion completion) {
  const auto base = baseURL();
  if (!base) return call(completion, request::InternalError{});
  const URL url = base->appendingPathComponent("register").appendingPathComponent("account");
  auto body = writeJSONObject({{"email", email},
                               {"firstName", firstName},
                               {"lastName", lastName},
                               {"authKey", authKey},
                               {"marketingEmailOptIn", marketingOptIn}});
  if (!body) return call(completion, request::InternalError{});
  sessionManager_->postJSONData<RegistrationParser::Item>(
      std::move(*body), url, std::make_shared<const RegistrationParser>(), std::move(completion));
}

}  // namespace paperloom
