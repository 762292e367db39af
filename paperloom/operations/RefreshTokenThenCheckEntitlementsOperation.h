#pragma once

#include <memory>
#include <optional>
#include <string_view>
#include <variant>

#include "paperloom/identity/AuthDataCoordinator.h"
#include "paperloom/identity/ContentAuthorisation.h"
#include "paperloom/identity/Entitlement.h"
#include "paperloom/operations/AsynchronousOperation.h"
#include "paperloom/operations/OperationResult.h"
#include "paperloom/platform/Export.h"

namespace paperloom {

struct PAPERLOOM_EXPORT RefreshTokenThenCheckEntitlementsOperationResult {
  struct Success {
    std::shared_ptr<const ContentAuthorisationProtocol> contentAuthorisation;  // the new tokens
    Premium premium = Premium::notPremium;
  };
  struct RefreshTokenInvalid {};  // the reader must log in again
  struct OtherFailure {};

  std::variant<Success, RefreshTokenInvalid, OtherFailure> value;

  // "success" and so on.
  std::string_view caseName() const;
};

// Refreshes the tokens, then asks for the entitlement. Made with std::make_shared; one that is
// released before its answer comes never finishes.
class PAPERLOOM_EXPORT RefreshTokenThenCheckEntitlementsOperation final
    : public AsynchronousOperation {
 public:
  RefreshTokenThenCheckEntitlementsOperation() = delete;
  // Over the shared coordinator. The authorisation is not null.
  explicit RefreshTokenThenCheckEntitlementsOperation(
      std::shared_ptr<const ContentAuthorisationProtocol> contentAuthorisation);
  RefreshTokenThenCheckEntitlementsOperation(
      std::shared_ptr<const ContentAuthorisationProtocol> contentAuthorisation,
      std::shared_ptr<AuthDataCoordinatorProtocol> dataCoordinator);

  void main() override;

  // None until the operation finishes, and for one that was cancelled before its start.
  const std::optional<RefreshTokenThenCheckEntitlementsOperationResult>& result() const {
    return result_.value();
  }

 private:
  void checkEntitlement(std::shared_ptr<const ContentAuthorisationProtocol> authorisation);
  void finish(RefreshTokenThenCheckEntitlementsOperationResult result);

  OperationResult<RefreshTokenThenCheckEntitlementsOperationResult> result_;
  std::shared_ptr<AuthDataCoordinatorProtocol> dataCoordinator_;
  std::shared_ptr<const ContentAuthorisationProtocol> contentAuthorisation_;
};

}  // namespace paperloom
