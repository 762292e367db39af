#include "paperloom/operations/RefreshTokenThenCheckEntitlementsOperation.h"

#include <string>
#include <utility>

#include "paperloom/operations/internal/Answers.h"
#include "paperloom/operations/internal/WeakAnswer.h"
#include "paperloom/platform/FatalError.h"

namespace paperloom {
namespace {

using Authorisation = std::shared_ptr<const ContentAuthorisationProtocol>;
using RefreshOutcome = RefreshTokenThenCheckEntitlementsOperationResult;

}  // namespace

RefreshTokenThenCheckEntitlementsOperation::RefreshTokenThenCheckEntitlementsOperation(
    Authorisation contentAuthorisation)
    : RefreshTokenThenCheckEntitlementsOperation(std::move(contentAuthorisation),
                                                 sharedCoordinator<AuthDataCoordinator>()) {}

RefreshTokenThenCheckEntitlementsOperation::RefreshTokenThenCheckEntitlementsOperation(
    Authorisation contentAuthorisation,
    std::shared_ptr<AuthDataCoordinatorProtocol> dataCoordinator)
    : dataCoordinator_(required(std::move(dataCoordinator), "an operation needs a coordinator")),
      contentAuthorisation_(
          required(std::move(contentAuthorisation), "an operation needs an authorisation")) {}

void RefreshTokenThenCheckEntitlementsOperation::main() {
  AsynchronousOperation::main();
  using Self = RefreshTokenThenCheckEntitlementsOperation;
  using Answer = RequestResult<Authorisation>;
  dataCoordinator_->refreshToken(contentAuthorisation_->refreshToken(),
                                 weakAnswer<Answer>(*this, [](Self& self, const Answer& answer) {
                                   if (const auto* refreshed = itemOf(answer)) {
                                     self.checkEntitlement(*refreshed);
                                   } else if (failedWithStatus(answer, 401)) {
                                     self.finish({RefreshOutcome::RefreshTokenInvalid{}});
                                   } else {
                                     self.finish({RefreshOutcome::OtherFailure{}});
                                   }
                                 }));
}

void RefreshTokenThenCheckEntitlementsOperation::checkEntitlement(Authorisation authorisation) {
  using Self = RefreshTokenThenCheckEntitlementsOperation;
  using Answer = RequestResult<Entitlement>;
  const std::string accessToken = authorisation->accessToken();
  dataCoordinator_->checkEntitlement(
      accessToken, weakAnswer<Answer>(*this, [authorisation = std::move(authorisation)](
                                                 Self& self, const Answer& answer) {
        const auto* entitlement = itemOf(answer);
        if (entitlement == nullptr) return self.finish({RefreshOutcome::OtherFailure{}});
        self.finish({RefreshOutcome::Success{authorisation, *entitlement == Entitlement::premium
                                                                ? Premium::premium
                                                                : Premium::notPremium}});
      }));
}

void RefreshTokenThenCheckEntitlementsOperation::finish(RefreshOutcome result) {
  if (result_.store(std::move(result))) setState(State::finished);
}

}  // namespace paperloom
