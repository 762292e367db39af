#include "paperloom/operations/CheckEntitlementOperation.h"

#include <array>
#include <string>
#include <utility>

#include "paperloom/operations/internal/Answers.h"
#include "paperloom/operations/internal/WeakAnswer.h"

namespace paperloom {
namespace {

using Authorisation = std::shared_ptr<const ContentAuthorisationProtocol>;
using Outcome = CheckEntitlementOperationResult;

Outcome outcome(Entitlement entitlement, Authorisation newAuthorisation) {
  if (entitlement == Entitlement::premium) return {Outcome::Premium{std::move(newAuthorisation)}};
  return {Outcome::NotPremium{std::move(newAuthorisation)}};
}

}  // namespace

std::string_view CheckEntitlementOperationResult::caseName() const {
  constexpr std::array<std::string_view, 4> names{"premium", "notPremium", "refreshTokenFailed",
                                                  "otherFailure"};
  return names[value.index()];
}

CheckEntitlementOperation::CheckEntitlementOperation(Authorisation contentAuthorisation)
    : CheckEntitlementOperation(std::move(contentAuthorisation),
                                sharedCoordinator<AuthDataCoordinator>()) {}

CheckEntitlementOperation::CheckEntitlementOperation(
    Authorisation contentAuthorisation,
    std::shared_ptr<AuthDataCoordinatorProtocol> dataCoordinator)
    : dataCoordinator_(std::move(dataCoordinator)),
      contentAuthorisation_(std::move(contentAuthorisation)) {}

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
                             self.finish({Outcome::OtherFailure{}});
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
          self.finish({Outcome::RefreshTokenFailed{}});
        } else {
          self.finish({Outcome::OtherFailure{}});
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
          self.finish({Outcome::OtherFailure{}});
        }
      }));
}

void CheckEntitlementOperation::finish(CheckEntitlementOperationResult result) {
  if (result_.store(std::move(result))) setState(State::finished);
}

}  // namespace paperloom
