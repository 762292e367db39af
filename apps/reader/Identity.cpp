#include "apps/reader/Identity.h"

#include "apps/reader/Signals.h"
#include "paperloom/identity/LoginKeeper.h"
#include "paperloom/identity/RegistrationCoordinator.h"
#include "paperloom/network/AuthSessionManager.h"

namespace paperloom::reader {

Identity::Identity(Host& host, AccountStore store) : host_(host), store_(std::move(store)) {
  const auto session = std::make_shared<AuthSessionManager>();
  const URL baseURL = host.identityURL();
  authentication_ = std::make_shared<AuthDataCoordinator>(session);
  authentication_->setBaseURL(baseURL);
  registration_ = std::make_shared<UserRegistrationDataCoordinator>(session);
  registration_->setBaseURL(baseURL);
}

void Identity::run(const std::shared_ptr<Operation>& operation) {
  auto finished = std::make_shared<bool>(false);
  operation->setCompletionBlock(
      [finished] { DispatchQueue::main().async([finished] { *finished = true; }); });
  queue_.addOperation(operation);
  try {
    host_.waitUntil([&] { return *finished; }, host_.nameOf(host_.identityURL()));
  } catch (const Interrupted&) {
    if (login_) login_->settle();
    throw;
  }
  if (login_) login_->throwIfFailed();
}

template <class SomeOperation>
auto Identity::runWith(const Account& account) {
  login_ = std::make_shared<AccountLogin>(store_, account);
  const auto operation = std::make_shared<SomeOperation>(
      authorisationOf(account), std::make_shared<LoginKeeper>(authentication_, login_));
  run(operation);
  return *operation->result();
}

void Identity::keepPremium(bool premium) {
  store_.change(login_->refreshToken(), [&](Account& account) {
    account.premium = premium;
    account.checkedAt = currentDate();
  });
}

void Identity::keepLogin(Account account, const ContentAuthorisationProtocol& tokens) {
  account.accessToken = tokens.accessToken();
  account.refreshToken = tokens.refreshToken();
  account.idToken = tokens.idToken();
  account.checkedAt = currentDate();
  store_.save(account);
}

LoginOperationResult Identity::login(const std::string& identifier, const std::string& password) {
  using Type = AuthenticationLoginCredentialType;
  using Outcome = LoginOperationResult;
  const bool isEmail = identifier.find('@') != std::string::npos;
  const Type type = isEmail ? Type::emailAndPassword : Type::kxNumber;
  const auto operation =
      std::make_shared<LoginOperation>(identifier, password, type, authentication_);
  run(operation);

  const Outcome result = *operation->loginResult();
  Account account;
  account.identifier = identifier;
  account.credentialType = rawValue(type);
  if (const auto* in = std::get_if<Outcome::LoggedInAndPremium>(&result.value)) {
    account.premium = true;
    keepLogin(account, *in->content);
  } else if (const auto* plain = std::get_if<Outcome::LoggedInAndNotPremium>(&result.value)) {
    account.premium = false;
    keepLogin(account, *plain->content);
  }
  return result;
}

CheckEntitlementOperationResult Identity::check(const Account& account) {
  using Outcome = CheckEntitlementOperationResult;
  const Outcome result = runWith<CheckEntitlementOperation>(account);
  if (!std::holds_alternative<Outcome::OtherFailure>(result.value)) {
    keepPremium(std::holds_alternative<Outcome::Premium>(result.value));
  }
  return result;
}

RefreshTokenThenCheckEntitlementsOperationResult Identity::refresh(const Account& account) {
  using Outcome = RefreshTokenThenCheckEntitlementsOperationResult;
  const Outcome result = runWith<RefreshTokenThenCheckEntitlementsOperation>(account);
  if (!std::holds_alternative<Outcome::OtherFailure>(result.value)) {
    const auto* success = std::get_if<Outcome::Success>(&result.value);
    keepPremium(success != nullptr && success->premium == Premium::premium);
  }
  return result;
}

UserRegistrationResult Identity::registerAccount(
    const RegistrationOperation::Arguments& arguments) {
  using Outcome = UserRegistrationResult;
  store_.peek();  // what no account can be kept in is said before one is made
  const auto operation = std::make_shared<RegistrationOperation>(arguments, registration_);
  run(operation);

  const Outcome result = *operation->registrationResult();
  if (const auto* made = std::get_if<Outcome::RegisteredWithRefreshToken>(&result.value)) {
    const TokenProtocol& token = *made->registrationResult->token();
    Account account;
    account.identifier = made->registrationResult->email();
    account.credentialType = rawValue(AuthenticationLoginCredentialType::emailAndPassword);
    account.accessToken = token.accessToken();
    account.refreshToken = token.refreshToken().value_or("");
    account.idToken = token.idToken();
    try {
      store_.save(account);
    } catch (const Failure& failure) {
      throw Failure("the account is made, but " + failure.text);
    }
  }
  return result;
}

std::optional<PaperloomError> Identity::unlink(Link link, const Account& account,
                                               const std::string& email) {
  struct Outcome {
    bool done = false;
    std::optional<PaperloomError> error;
  };
  auto outcome = std::make_shared<Outcome>();
  const auto success = [outcome] {
    DispatchQueue::main().async([outcome] { outcome->done = true; });
  };
  const auto failure = [outcome](PaperloomError error) {
    DispatchQueue::main().async([outcome, error] { *outcome = {true, error}; });
  };
  RegistrationCoordinator coordinator(host_.sessionManager());
  coordinator.setBaseURL(host_.identityURL());
  switch (link) {
    case Link::email:
      coordinator.deleteEmailDetails(account.accessToken, email, success, failure);
      break;
    case Link::facebook:
      coordinator.deleteFacebookDetails(account.accessToken, success, failure);
      break;
    case Link::google:
      coordinator.deleteGoogleDetails(account.accessToken, success, failure);
      break;
  }
  host_.waitUntil([&] { return outcome->done; }, host_.nameOf(host_.identityURL()));
  return outcome->error;
}

}  // namespace paperloom::reader
