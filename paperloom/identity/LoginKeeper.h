#pragma once

#include <functional>
#include <memory>
#include <string>

#include "paperloom/identity/AuthDataCoordinator.h"
#include "paperloom/identity/ContentAuthorisation.h"
#include "paperloom/platform/Export.h"

namespace paperloom {

// Where a host keeps its login, as a LoginKeeper sees it. Called on the thread that asks for a
// refresh (an operation does so on a thread of its queue, or on the session's callback queue) and
// on the one that brings the answer; a call may wait for a disk or a lock.
class PAPERLOOM_EXPORT LoginStorage {
 public:
  using Authorisation = std::shared_ptr<const ContentAuthorisationProtocol>;

  // One refresh. It is let go before anybody hears of the answer, and may hold a lock until then.
  class PAPERLOOM_EXPORT Refresh {
   public:
    virtual ~Refresh() = default;
    // The login that is kept by now in the place of the one with the refresh token, put there by
    // another process or a new login; null when none is. Asked before the token is sent and again
    // when it was refused.
    virtual Authorisation replacement() = 0;
    // Keeps new tokens in the place of the old ones.
    virtual void keep(const Authorisation& refreshed) = 0;
  };

  virtual ~LoginStorage() = default;

  // Makes sure that what comes can be kept, since the token may be good for one refresh only. Null
  // when it cannot: nothing is sent then.
  virtual std::unique_ptr<Refresh> beginRefresh(const std::string& refreshToken) = 0;
};

// Keeps a login through its refreshes. It stands between the identity operations and a coordinator:
//
// - New tokens are handed to the host's storage before anybody else hears of them, so also before
//   the entitlement check that follows. Whatever becomes of that check, of the operation and of
//   this object, they are not lost.
// - A refresh token goes out once: a refresh asked for while one of the same token is on its way
//   gets the same answer, and one asked for later gets the tokens that the first one brought. So
//   two checks that find the same access token expired both go on.
//
// All other calls and answers pass unchanged. One keeper for one login. Safe from any thread.
class PAPERLOOM_EXPORT LoginKeeper final : public AuthDataCoordinatorProtocol {
 public:
  using Keep = std::function<void(const LoginStorage::Authorisation& refreshed)>;

  // `keep`, if it is not empty, is called with the tokens that each refresh brings. Without a
  // coordinator, or a storage, the program stops.
  LoginKeeper(std::shared_ptr<AuthDataCoordinatorProtocol> coordinator, Keep keep);
  // For a login that is shared with other processes. A refresh whose storage cannot begin ends with
  // InternalError.
  LoginKeeper(std::shared_ptr<AuthDataCoordinatorProtocol> coordinator,
              std::shared_ptr<LoginStorage> storage);
  // Answers under way are still kept when they come.
  ~LoginKeeper() override;

  void login(const std::string& identifier, const std::string& authKey,
             AuthenticationLoginCredentialType credentialType,
             AuthorisationCompletion completion) override;
  void checkEntitlement(const std::string& accessToken, EntitlementCompletion completion) override;
  void refreshToken(const std::string& refreshToken, AuthorisationCompletion completion) override;

 private:
  class Flight;
  struct State;
  std::shared_ptr<State> state_;
};

}  // namespace paperloom
