#include "paperloom/operations/LoginOperation.h"

#include <utility>

#include "paperloom/operations/internal/Answers.h"
#include "paperloom/operations/internal/WeakAnswer.h"
#include "paperloom/platform/FatalError.h"

namespace paperloom {

LoginOperation::LoginOperation(std::string identifier, std::string authKey,
                               AuthenticationLoginCredentialType credentialType)
    : LoginOperation(std::move(identifier), std::move(authKey), credentialType,
                     sharedCoordinator<AuthDataCoordinator>()) {}

LoginOperation::LoginOperation(std::string identifier, std::string authKey,
                               AuthenticationLoginCredentialType credentialType,
                               std::shared_ptr<AuthDataCoordinatorProtocol> dataCoordinator)
    : dataCoordinator_(required(std::move(dataCoordinator), "an operation needs a coordinator")),
      identifier_(std::move(identifier)),
      authKey_(std::move(authKey)),
      credentialType_(credentialType) {}

void LoginOperation::main() {
  AsynchronousOperation::main();
  using Answer = RequestResult<std::shared_ptr<const ContentAuthorisationProtocol>>;
  dataCoordinator_->login(identifier_, authKey_, credentialType_,
                          weakAnswer<Answer>(*this, [](LoginOperation& self, const Answer& answer) {
                            if (const auto* authorisation = itemOf(answer)) {
                              self.checkEntitlement(*authorisation);
                            } else if (failedWithStatus(answer, 401)) {
                              self.finish({LoginOperationResult::WrongUsernameAndPassword{}});
                            } else {
                              self.finish({LoginOperationResult::Error{}});
                            }
                          }));
}

void LoginOperation::checkEntitlement(
    std::shared_ptr<const ContentAuthorisationProtocol> authorisation) {
  using Answer = RequestResult<Entitlement>;
  const std::string accessToken = authorisation->accessToken();
  dataCoordinator_->checkEntitlement(
      accessToken, weakAnswer<Answer>(*this, [authorisation = std::move(authorisation)](
                                                 LoginOperation& self, const Answer& answer) {
        const auto* entitlement = itemOf(answer);
        if (entitlement != nullptr && *entitlement == Entitlement::premium) {
          self.finish({LoginOperationResult::LoggedInAndPremium{authorisation}});
        } else {
          self.finish({LoginOperationResult::LoggedInAndNotPremium{authorisation}});
        }
      }));
}

void LoginOperation::finish(LoginOperationResult result) {
  if (loginResult_.store(std::move(result))) setState(State::finished);
}

}  // namespace paperloom
