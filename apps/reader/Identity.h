#pragma once

#include <memory>
#include <string>

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
// kept in the account store before they return; all throw Failure only when that cannot be done.
class Identity {
 public:
  Identity(Host& host, AccountStore store);

  // An identifier with an at-sign is an e-mail address, any other a subscriber number.
  LoginOperationResult login(const std::string& identifier, const std::string& password);
  CheckEntitlementOperationResult check(Account account);
  RefreshTokenThenCheckEntitlementsOperationResult refresh(Account account);
  UserRegistrationResult registerAccount(const RegistrationOperation::Arguments& arguments);

  enum class Link { email, facebook, google };
  // Throws the service's refusal as Failure.
  void unlink(Link link, const Account& account, const std::string& email);

  const AccountStore& store() const { return store_; }

 private:
  void run(const std::shared_ptr<Operation>& operation);
  void keep(Account account, const ContentAuthorisationProtocol* tokens, bool premium) const;

  Host& host_;
  AccountStore store_;
  std::shared_ptr<AuthDataCoordinator> authentication_;
  std::shared_ptr<UserRegistrationDataCoordinator> registration_;
  OperationQueue queue_;
};

}  // namespace paperloom::reader
