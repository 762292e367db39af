#pragma once

#include <memory>
#include <optional>
#include <string_view>
#include <variant>

#include "paperloom/identity/AuthDataCoordinator.h"
#include "paperloom/identity/ContentAuthorisation.h"
#include "paperloom/model/CaseName.h"
#include "paperloom/operations/AsynchronousOperation.h"
#include "paperloom/operations/OperationResult.h"
#include "paperloom/platform/Export.h"

namespace paperloom {

// `newAuthorisation` holds the refreshed tokens, which a host must keep in place of its old ones;
// null when the old ones were accepted. No outcome carries tokens whose check has failed: a host
// whose refresh tokens are good for one refresh only gives the operation a LoginKeeper.
struct PAPERLOOM_EXPORT CheckEntitlementOperationResult {
  struct Premium {
    static constexpr std::string_view name = "premium";
    std::shared_ptr<const ContentAuthorisationProtocol> newAuthorisation;
  };
  struct NotPremium {
    static constexpr std::string_view name = "notPremium";
    std::shared_ptr<const ContentAuthorisationProtocol> newAuthorisation;
  };
  struct RefreshTokenFailed {
    static constexpr std::string_view name = "refreshTokenFailed";
  };  // the reader must log in again
  struct OtherFailure {
    static constexpr std::string_view name = "otherFailure";
  };

  std::variant<Premium, NotPremium, RefreshTokenFailed, OtherFailure> value;

  // "premium" and so on.
  std::string_view caseName() const { return paperloom::caseName(value); }
};

// Asks what the tokens at hand are entitled to, and refreshes them once when the access token is
// refused. Made with std::make_shared; one that is released before its answer comes never finishes.
class PAPERLOOM_EXPORT CheckEntitlementOperation : public AsynchronousOperation {
 public:
  CheckEntitlementOperation() = delete;
  // Over the shared coordinator. A null authorisation, or coordinator, stops the program.
  explicit CheckEntitlementOperation(
      std::shared_ptr<const ContentAuthorisationProtocol> contentAuthorisation);
  CheckEntitlementOperation(
      std::shared_ptr<const ContentAuthorisationProtocol> contentAuthorisation,
      std::shared_ptr<AuthDataCoordinatorProtocol> dataCoordinator);

  void main() override;

  // None until the operation finishes, and for one that was cancelled before its start.
  const std::optional<CheckEntitlementOperationResult>& result() const { return result_.value(); }

 protected:
  // The first request; main() calls it with the tokens at hand.
  virtual void checkEntitlement(
      const std::shared_ptr<const ContentAuthorisationProtocol>& authorisation);
  // Stores the outcome, if it is the first, and ends the operation.
  void finish(CheckEntitlementOperationResult result);

 private:
  void refresh(const ContentAuthorisationProtocol& authorisation);
  void checkRefreshed(std::shared_ptr<const ContentAuthorisationProtocol> authorisation);

  std::shared_ptr<AuthDataCoordinatorProtocol> dataCoordinator_;
  std::shared_ptr<const ContentAuthorisationProtocol> contentAuthorisation_;
  OperationResult<CheckEntitlementOperationResult> result_;
};

}  // namespace paperloom
