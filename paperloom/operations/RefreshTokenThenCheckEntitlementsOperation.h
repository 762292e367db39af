#pragma once

#include <memory>
#include <optional>
#include <string_view>
#include <variant>

#include "paperloom/identity/AuthDataCoordinator.h"
#include "paperloom/identity/ContentAuthorisation.h"
#include "paperloom/identity/Entitlement.h"
#include "paperloom/model/CaseName.h"
#include "paperloom/operations/AsynchronousOperation.h"
#include "paperloom/operations/OperationResult.h"
#include "paperloom/platform/Export.h"

namespace paperloom {

// How the refresh and the check after it ended.
struct PAPERLOOM_EXPORT RefreshTokenThenCheckEntitlementsOperationResult {
  struct Success {
    static constexpr std::string_view name = "success";
    std::shared_ptr<const ContentAuthorisationProtocol> contentAuthorisation;  // the new tokens
    Premium premium = Premium::notPremium;
  };
  struct RefreshTokenInvalid {
    static constexpr std::string_view name = "refreshTokenInvalid";
  };  // the reader must log in again
  struct OtherFailure {
    static constexpr std::string_view name = "otherFailure";
  };

  std::variant<Success, RefreshTokenInvalid, OtherFailure> value;

  // "success" and so on.
  std::string_view caseName() const { return paperloom::caseName(value); }
};

// Refreshes the tokens, then asks for the entitlement. Made with std::make_shared; one that is
// released before its answer comes never finishes.
class PAPERLOOM_EXPORT RefreshTokenThenCheckEntitlementsOperation final
    : public AsynchronousOperation {
 public:
  RefreshTokenThenCheckEntitlementsOperation() = delete;
  // Over the shared coordinator. A null authorisation, or coordinator, stops the program.
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
