#pragma once

#include <memory>
#include <string>

#include "apps/reader/AccountLogin.h"
#include "apps/reader/AccountStore.h"
#include "apps/reader/Host.h"
#include "paperloom/identity/AuthDataCoordinator.h"
#include "paperloom/identity/AuthenticationLoginCredentialType.h"
#include "paperloom/identity/UserRegistrationDataCoordinator.h"
#include "paperloom/operations/CheckEntitlementOperation.h"
#include "paperloom/operations/LoginOperation.h"
#include "paperloom/operations/RefreshTokenThenCheckEntitlementsOperation.h"
#include "paperloom/operations/RegistrationOperation.h"
#include "paperloom/platform/OperationQueue.h"

namespace paperloom::reader {

// The calls to the identity service: operations run on a queue and waited for. What they bring is
// kept in the account store before they return, unless another command has changed the account
// meanwhile; all throw Failure only when that cannot be done.
class Identity {
 public:
  Identity(Host& host, AccountStore store);

  // An identifier with an at-sign is an e-mail address, any other a subscriber number.
  LoginOperationResult login(const std::string& identifier, const std::string& password);
  CheckEntitlementOperationResult check(const Account& account);
  RefreshTokenThenCheckEntitlementsOperationResult refresh(const Account& account);
  // Whether the last of these two has brought new tokens, whatever its outcome.
  bool isRefreshed() const { return login_ && login_->isRefreshed(); }
  UserRegistrationResult registerAccount(const RegistrationOperation::Arguments& arguments);

  enum class Link { email, facebook, google };
  // The service's refusal, if it is one.
  std::optional<PaperloomError> unlink(Link link, const Account& account, const std::string& email);

  AccountStore& store() { return store_; }

 private:
  void run(const std::shared_ptr<Operation>& operation);
  // Runs an operation over the account's login.
  template <class SomeOperation>
  auto runWith(const Account& account);
  void keepPremium(bool premium);
  void keepLogin(Account account, const ContentAuthorisationProtocol& tokens);

  Host& host_;
  AccountStore store_;
  std::shared_ptr<AccountLogin> login_;
  std::shared_ptr<AuthDataCoordinator> authentication_;
  std::shared_ptr<UserRegistrationDataCoordinator> registration_;
  OperationQueue queue_;
};

}  // namespace paperloom::reader
