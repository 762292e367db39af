#include "paperloom/operations/CheckEntitlementOperation.h"

#include <string>
#include <utility>

#include "paperloom/operations/internal/Answers.h"
#include "paperloom/operations/internal/WeakAnswer.h"
#include "paperloom/platform/FatalError.h"

namespace paperloom {
namespace {

using Authorisation = std::shared_ptr<const ContentAuthorisationProtocol>;
using CheckOutcome = CheckEntitlementOperationResult;

CheckOutcome outcome(Entitlement entitlement, Authorisation newAuthorisation) {
  if (entitlement == Entitlement::premium)
    return {CheckOutcome::Premium{std::move(newAuthorisation)}};
  return {CheckOutcome::NotPremium{std::move(newAuthorisation)}};
}

}  // namespace

CheckEntitlementOperation::CheckEntitlementOperation(Authorisation contentAuthorisation)
    : CheckEntitlementOperation(std::move(contentAuthorisation),
                                sharedCoordinator<AuthDataCoordinator>()) {}

CheckEntitlementOperation::CheckEntitlementOperation(
    Authorisation contentAuthorisation,
    std::shared_ptr<AuthDataCoordinatorProtocol> dataCoordinator)
    : dataCoordinator_(required(std::move(dataCoordinator), "an operation needs a coordinator")),
      contentAuthorisation_(
          required(std::move(contentAuthorisation), "an operation needs an authorisation")) {}

void CheckEntitlementOperation::main() {
  AsynchronousOperation::main();
  checkEntitlement(contentAuthorisation_);
}

void CheckEntitlementOperation::checkEntitlement(const Authorisation& authorisation) {
  using Answer = RequestResult<Entitlement>;
  dataCoordinator_->checkEntitlement(
      authorisation->accessToken(),
      weakAnswer<Answer>(*this,
                         [authorisation](CheckEntitlementOperation& self, const Answer& answer) {
                           if (const auto* entitlement = itemOf(answer)) {
                             self.finish(outcome(*entitlement, nullptr));
                           } else if (failedWithStatus(answer, 401)) {
                             self.refresh(*authorisation);
                           } else {
                             self.finish({CheckOutcome::OtherFailure{}});
                           }
                         }));
}

void CheckEntitlementOperation::refresh(const ContentAuthorisationProtocol& authorisation) {
  using Answer = RequestResult<Authorisation>;
  dataCoordinator_->refreshToken(
      authorisation.refreshToken(),
      weakAnswer<Answer>(*this, [](CheckEntitlementOperation& self, const Answer& answer) {
        if (const auto* refreshed = itemOf(answer)) {
          self.checkRefreshed(*refreshed);
        } else if (failedWithStatus(answer, 401)) {
          self.finish({CheckOutcome::RefreshTokenFailed{}});
        } else {
          self.finish({CheckOutcome::OtherFailure{}});
        }
      }));
}

void CheckEntitlementOperation::checkRefreshed(Authorisation authorisation) {
  using Answer = RequestResult<Entitlement>;
  const std::string accessToken = authorisation->accessToken();
  dataCoordinator_->checkEntitlement(
      accessToken,
      weakAnswer<Answer>(*this, [authorisation = std::move(authorisation)](
                                    CheckEntitlementOperation& self, const Answer& answer) {
        if (const auto* entitlement = itemOf(answer)) {
          self.finish(outcome(*entitlement, authorisation));
        } else {
          self.finish({CheckOutcome::OtherFailure{}});
        }
      }));
}

void CheckEntitlementOperation::finish(CheckEntitlementOperationResult result) {
  if (result_.store(std::move(result))) setState(State::finished);
}

}  // namespace paperloom
