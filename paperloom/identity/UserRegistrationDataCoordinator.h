#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "paperloom/identity/RegistrationResponseModel.h"
#include "paperloom/network/AuthSessionManagerProtocol.h"
#include "paperloom/network/RequestResult.h"
#include "paperloom/platform/Export.h"
#include "paperloom/platform/Guarded.h"
#include "paperloom/platform/URL.h"

namespace paperloom {

// The request to the identity service for a new account.
class PAPERLOOM_EXPORT UserRegistrationDataCoordinatorProtocol {
 public:
  using Completion =
      std::function<void(RequestResult<std::shared_ptr<const RegistrationResponseModelProtocol>>)>;

  virtual ~UserRegistrationDataCoordinatorProtocol() = default;

  // POSTs base URL + "register/account"; `marketingOptIn` speaks of e-mail only. The completion
  // runs on the session manager's callback queue and may come twice: see
  // AuthSessionManagerProtocol. InternalError, at once and on the caller's thread, without a base
  // URL and for texts that are not valid UTF-8.
  virtual void registerAccount(const std::string& email, const std::string& authKey,
                               const std::string& firstName, const std::string& lastName,
                               bool marketingOptIn, Completion completion) = 0;
};

// Safe from any thread.
class PAPERLOOM_EXPORT UserRegistrationDataCoordinator final
    : public UserRegistrationDataCoordinatorProtocol {
 public:
  // The process's instance, over an AuthSessionManager of its own unless another was named.
  static UserRegistrationDataCoordinator& shared();
  // As DataCoordinator::configureShared(): false, and no effect, once shared() has been called.
  [[nodiscard]] static bool configureShared(
      std::shared_ptr<AuthSessionManagerProtocol> sessionManager);

  // Without a session manager the program stops.
  explicit UserRegistrationDataCoordinator(
      std::shared_ptr<AuthSessionManagerProtocol> sessionManager);

  void registerAccount(const std::string& email, const std::string& authKey,
                       const std::string& firstName, const std::string& lastName,
                       bool marketingOptIn, Completion completion) override;

  // The root of the identity service; none at first.
  std::optional<URL> baseURL() const;
  void setBaseURL(std::optional<URL> url);

 private:
  Guarded<std::optional<URL>> baseURL_;
  std::shared_ptr<AuthSessionManagerProtocol> sessionManager_;
};

}  // namespace paperloom
