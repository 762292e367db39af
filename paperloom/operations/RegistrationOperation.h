#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include "paperloom/identity/RegistrationResponseModel.h"
#include "paperloom/identity/UserRegistrationDataCoordinator.h"
#include "paperloom/model/CaseName.h"
#include "paperloom/operations/AsynchronousOperation.h"
#include "paperloom/operations/OperationResult.h"
#include "paperloom/platform/Export.h"

namespace paperloom {

// How a registration ended.
struct PAPERLOOM_EXPORT UserRegistrationResult {
  struct RegisteredWithRefreshToken {
    static constexpr std::string_view name = "registeredWithRefreshToken";
    std::shared_ptr<const RegistrationResponseModelProtocol> registrationResult;
  };
  struct RegisteredWithoutRefreshToken {
    static constexpr std::string_view name = "registeredWithoutRefreshToken";
    std::shared_ptr<const RegistrationResponseModelProtocol> registrationResult;
  };
  struct BadRequest {
    static constexpr std::string_view name = "badRequest";
  };
  struct DuplicateAccount {
    static constexpr std::string_view name = "duplicateAccount";
  };
  struct Timeout {
    static constexpr std::string_view name = "timeout";
  };  // no answer, or the service says that it had none itself
  struct Failed {
    static constexpr std::string_view name = "failed";
  };

  std::variant<RegisteredWithRefreshToken, RegisteredWithoutRefreshToken, BadRequest,
               DuplicateAccount, Timeout, Failed>
      value;

  // "registeredWithRefreshToken" and so on.
  std::string_view caseName() const { return paperloom::caseName(value); }
};

// Makes a new account. Made with std::make_shared; a started operation lives until its answer is
// in.
class PAPERLOOM_EXPORT RegistrationOperation final : public AsynchronousOperation {
 public:
  struct Arguments {
    std::string email;
    std::string authKey;
    std::string firstName;
    std::string lastName;
    bool martketingOptIn = false;  // spelt like this by every host that names it
  };

  RegistrationOperation() = delete;
  // Over the shared coordinator; with one of the host's, null stops the program.
  explicit RegistrationOperation(Arguments arguments);
  RegistrationOperation(Arguments arguments,
                        std::shared_ptr<UserRegistrationDataCoordinatorProtocol> dataCoordinator);

  void main() override;

  // None until the operation finishes, and for one that was cancelled before its start.
  const std::optional<UserRegistrationResult>& registrationResult() const {
    return registrationResult_.value();
  }

 private:
  void finish(UserRegistrationResult result);

  OperationResult<UserRegistrationResult> registrationResult_;
  std::shared_ptr<UserRegistrationDataCoordinatorProtocol> dataCoordinator_;
  std::string email_;
  std::string authKey_;
  std::string firstName_;
  std::string lastName_;
  bool marketingOptIn_;
};

}  // namespace paperloom
