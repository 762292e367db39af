#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "paperloom/identity/AuthenticationLoginCredentialType.h"
#include "paperloom/identity/ContentAuthorisation.h"
#include "paperloom/identity/Entitlement.h"
#include "paperloom/network/AuthSessionManagerProtocol.h"
#include "paperloom/network/RequestResult.h"
#include "paperloom/platform/Export.h"
#include "paperloom/platform/Guarded.h"
#include "paperloom/platform/URL.h"

namespace paperloom {

// The requests to the identity service about an account's tokens. Completions run on the session
// manager's callback queue, and may come twice for one request: see AuthSessionManagerProtocol. An
// empty one drops the answer.
class PAPERLOOM_EXPORT AuthDataCoordinatorProtocol {
 public:
  using AuthorisationCompletion =
      std::function<void(RequestResult<std::shared_ptr<const ContentAuthorisationProtocol>>)>;
  using EntitlementCompletion = std::function<void(RequestResult<Entitlement>)>;

  virtual ~AuthDataCoordinatorProtocol() = default;

  // POSTs base URL + "token". InternalError, at once and on the caller's thread, without a base URL
  // and for texts that are not valid UTF-8.
  virtual void login(const std::string& identifier, const std::string& authKey,
                     AuthenticationLoginCredentialType credentialType,
                     AuthorisationCompletion completion) = 0;

  // GETs base URL + "entitlement" with the access token as the Authorization header, nothing added
  // to it. Status 200 is premium, 403 not premium, both a success; 401 means that the token is no
  // longer accepted. Without a base URL the completion is never called.
  virtual void checkEntitlement(const std::string& accessToken,
                                EntitlementCompletion completion) = 0;

  // POSTs base URL + "refreshToken" for new tokens. InternalError as for login().
  virtual void refreshToken(const std::string& refreshToken,
                            AuthorisationCompletion completion) = 0;
};

// Safe from any thread.
class PAPERLOOM_EXPORT AuthDataCoordinator final : public AuthDataCoordinatorProtocol {
 public:
  // The process's instance, over an AuthSessionManager of its own unless another was named.
  static AuthDataCoordinator& shared();
  // As DataCoordinator::configureShared(): false, and no effect, once shared() has been called.
  [[nodiscard]] static bool configureShared(
      std::shared_ptr<AuthSessionManagerProtocol> authSessionManager);

  // Without a session manager the program stops.
  explicit AuthDataCoordinator(std::shared_ptr<AuthSessionManagerProtocol> authSessionManager);

  void login(const std::string& identifier, const std::string& authKey,
             AuthenticationLoginCredentialType credentialType,
             AuthorisationCompletion completion) override;
  void checkEntitlement(const std::string& accessToken, EntitlementCompletion completion) override;
  void refreshToken(const std::string& refreshToken, AuthorisationCompletion completion) override;

  // The root of the identity service; none at first.
  std::optional<URL> baseURL() const;
  void setBaseURL(std::optional<URL> url);

 private:
  void postForAuthorisation(const URL& url, std::optional<Data> body,
                            AuthorisationCompletion completion);

  Guarded<std::optional<URL>> baseURL_;
  std::shared_ptr<AuthSessionManagerProtocol> authSessionManager_;
};

}  // namespace paperloom
