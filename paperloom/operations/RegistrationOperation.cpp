#include "paperloom/operations/RegistrationOperation.h"

#include <utility>

#include "paperloom/operations/internal/Answers.h"
#include "paperloom/platform/FatalError.h"

namespace paperloom {
namespace {

using Answer = RequestResult<std::shared_ptr<const RegistrationResponseModelProtocol>>;

UserRegistrationResult resultOf(const Answer& answer) {
  using Outcome = UserRegistrationResult;
  if (const auto* model = itemOf(answer)) {
    if ((*model)->token()->refreshToken()) return {Outcome::RegisteredWithRefreshToken{*model}};
    return {Outcome::RegisteredWithoutRefreshToken{*model}};
  }
  if (failedWithStatus(answer, 400)) return {Outcome::BadRequest{}};
  if (failedWithStatus(answer, 409)) return {Outcome::DuplicateAccount{}};
  if (failedWithStatus(answer, 504) || std::holds_alternative<request::NetworkError>(answer)) {
    return {Outcome::Timeout{}};
  }
  return {Outcome::Failed{}};
}

}  // namespace

RegistrationOperation::RegistrationOperation(Arguments arguments)
    : RegistrationOperation(std::move(arguments),
                            sharedCoordinator<UserRegistrationDataCoordinator>()) {}

RegistrationOperation::RegistrationOperation(
    Arguments arguments, std::shared_ptr<UserRegistrationDataCoordinatorProtocol> dataCoordinator)
    : dataCoordinator_(required(std::move(dataCoordinator), "an operation needs a coordinator")),
      email_(std::move(arguments.email)),
      authKey_(std::move(arguments.authKey)),
      firstName_(std::move(arguments.firstName)),
      lastName_(std::move(arguments.lastName)),
      marketingOptIn_(arguments.martketingOptIn) {}

void RegistrationOperation::main() {
  AsynchronousOperation::main();
  dataCoordinator_->registerAccount(
      email_, authKey_, firstName_, lastName_, marketingOptIn_,
      [this, self = shared_from_this()](const Answer& answer) { finish(resultOf(answer)); });
}

void RegistrationOperation::finish(UserRegistrationResult result) {
  if (registrationResult_.store(std::move(result))) setState(State::finished);
}

}  // namespace paperloom
