#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include "paperloom/identity/AuthDataCoordinator.h"
#include "paperloom/identity/AuthenticationLoginCredentialType.h"
#include "paperloom/identity/ContentAuthorisation.h"
#include "paperloom/model/CaseName.h"
#include "paperloom/operations/AsynchronousOperation.h"
#include "paperloom/operations/OperationResult.h"
#include "paperloom/platform/Export.h"

namespace paperloom {

// How a login ended, the check of the entitlement included.
struct PAPERLOOM_EXPORT LoginOperationResult {
  struct LoggedInAndPremium {
    static constexpr std::string_view name = "loggedInAndPremium";
    std::shared_ptr<const ContentAuthorisationProtocol> content;
  };
  struct LoggedInAndNotPremium {
    static constexpr std::string_view name = "loggedInAndNotPremium";
    std::shared_ptr<const ContentAuthorisationProtocol> content;
  };
  struct WrongUsernameAndPassword {
    static constexpr std::string_view name = "wrongUsernameAndPassword";
  };
  struct Error {
    static constexpr std::string_view name = "error";
  };

  std::variant<LoggedInAndPremium, LoggedInAndNotPremium, WrongUsernameAndPassword, Error> value;

  // "loggedInAndPremium" and so on.
  std::string_view caseName() const { return paperloom::caseName(value); }
};

// Logs in, then asks for the entitlement. A login whose entitlement cannot be learned counts as not
// premium. Made with std::make_shared; one that is released before its answer comes never finishes.
class PAPERLOOM_EXPORT LoginOperation final : public AsynchronousOperation {
 public:
  LoginOperation() = delete;
  // Over the shared coordinator; with one of the host's, null stops the program.
  LoginOperation(std::string identifier, std::string authKey,
                 AuthenticationLoginCredentialType credentialType);
  LoginOperation(std::string identifier, std::string authKey,
                 AuthenticationLoginCredentialType credentialType,
                 std::shared_ptr<AuthDataCoordinatorProtocol> dataCoordinator);

  void main() override;

  // None until the operation finishes, and for one that was cancelled before its start.
  const std::optional<LoginOperationResult>& loginResult() const { return loginResult_.value(); }

 private:
  void checkEntitlement(std::shared_ptr<const ContentAuthorisationProtocol> authorisation);
  void finish(LoginOperationResult result);

  std::shared_ptr<AuthDataCoordinatorProtocol> dataCoordinator_;
  std::string identifier_;
  std::string authKey_;
  AuthenticationLoginCredentialType credentialType_;
  OperationResult<LoginOperationResult> loginResult_;
};

}  // namespace paperloom
