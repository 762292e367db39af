#include "paperloom/identity/UserRegistrationDataCoordinator.h"

#include <utility>

#include "paperloom/identity/internal/RegistrationParser.h"
#include "paperloom/network/AuthSessionManager.h"
#include "paperloom/platform/internal/json/JSONWriter.h"

namespace paperloom {

UserRegistrationDataCoordinator& UserRegistrationDataCoordinator::shared() {
  static auto& instance =
      *new UserRegistrationDataCoordinator(std::make_shared<AuthSessionManager>());
  return instance;
}

UserRegistrationDataCoordinator::UserRegistrationDataCoordinator(
    std::shared_ptr<AuthSessionManagerProtocol> sessionManager)
    : sessionManager_(std::move(sessionManager)) {}

std::optional<URL> UserRegistrationDataCoordinator::baseURL() const {
  const std::lock_guard lock(mutex_);
  return baseURL_;
}

void UserRegistrationDataCoordinator::setBaseURL(std::optional<URL> url) {
  const std::lock_guard lock(mutex_);
  baseURL_ = std::move(url);
}

void UserRegistrationDataCoordinator::registerAccount(const std::string& email,
                                                      const std::string& authKey,
                                                      const std::string& firstName,
                                                      const std::string& lastName,
                                                      bool marketingOptIn, Completion completion) {
  const auto base = baseURL();
  if (!base) return completion(request::InternalError{});
  const URL url = base->appendingPathComponent("register").appendingPathComponent("account");
  auto body = writeJSONObject({{"email", email},
                               {"firstName", firstName},
                               {"lastName", lastName},
                               {"authKey", authKey},
                               {"marketingEmailOptIn", marketingOptIn}});
  if (!body) return completion(request::InternalError{});
  sessionManager_->postJSONData<RegistrationParser::Item>(
      std::move(*body), url, std::make_shared<const RegistrationParser>(), std::move(completion));
}

}  // namespace paperloom
