#include "paperloom/identity/RegistrationCoordinator.h"

#include <utility>
#include <vector>

#include "paperloom/network/ContentSessionManager.h"
#include "paperloom/platform/Callback.h"
#include "paperloom/platform/FatalError.h"
#include "paperloom/platform/FirstUse.h"
#include "paperloom/platform/JSONWriter.h"

namespace paperloom {
namespace {

constexpr const char* registrationWithoutManager =
    "a registration coordinator needs a session manager";

using ContentManagerOfShared = FirstUse<std::shared_ptr<ContentSessionManagerProtocol>>;

}  // namespace

struct RegistrationCoordinator::Removal {
  std::string call;
  std::string_view linkedDetail;
  std::vector<JSONMember> body;
};

RegistrationCoordinator& RegistrationCoordinator::shared() {
  static auto& instance =
      *new RegistrationCoordinator(ContentManagerOfShared::of<RegistrationCoordinator>().takeOr(
          [] { return std::make_shared<ContentSessionManager>(); }));
  return instance;
}

bool RegistrationCoordinator::configureShared(
    std::shared_ptr<ContentSessionManagerProtocol> sessionManager) {
  return ContentManagerOfShared::of<RegistrationCoordinator>().set(
      required(std::move(sessionManager), registrationWithoutManager));
}

RegistrationCoordinator::RegistrationCoordinator(
    std::shared_ptr<ContentSessionManagerProtocol> sessionManager)
    : sessionManager_(required(std::move(sessionManager), registrationWithoutManager)) {}

std::optional<URL> RegistrationCoordinator::baseURL() const { return baseURL_.get(); }

void RegistrationCoordinator::setBaseURL(std::optional<URL> url) { baseURL_.set(std::move(url)); }

void RegistrationCoordinator::deleteEmailDetails(const std::string& token, const std::string& email,
                                                 Success success, Failure failure) {
  remove({"deleteEmailDetails", "email", {{"email", email}, {"token", token}}}, std::move(success),
         std::move(failure));
}

void RegistrationCoordinator::deleteFacebookDetails(const std::string& token, Success success,
                                                    Failure failure) {
  remove({"deleteFacebookDetails", "facebook", {{"token", token}}}, std::move(success),
         std::move(failure));
}

void RegistrationCoordinator::deleteGoogleDetails(const std::string& token, Success success,
                                                  Failure failure) {
  remove({"deleteGoogleDetails", "google", {{"token", token}}}, std::move(success),
         std::move(failure));
}

void RegistrationCoordinator::remove(const Removal& removal, Success success, Failure failure) {
  const auto base = baseURL();
  if (!base) {
    return call(failure, PaperloomError::configurationError(removal.call + " - No Base URL"));
  }
  auto body = writeJSONObject(removal.body);
  if (!body) {
    // Said of the network although nothing was sent: hosts know it as that.
    return call(failure, PaperloomError::networkError("failed to serialize data into JSON"));
  }
  sessionManager_->postJSONData(
      base->appendingPathComponent("delete").appendingPathComponent(removal.linkedDetail),
      std::move(*body),
      [success = std::move(success), failure = std::move(failure)](PostRequestResult result) {
        if (auto* error = std::get_if<PaperloomError>(&result)) {
          return call(failure, std::move(*error));
        }
        const int code = std::get<PostSuccess>(result).responseCode;
        if (code == 200) return call(success);
        call(failure, PaperloomError::networkError("Response code " + std::to_string(code)));
      });
}

}  // namespace paperloom
