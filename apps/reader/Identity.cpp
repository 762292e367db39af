#include "apps/reader/Identity.h"

#include "paperloom/identity/ContentAuthorisation.h"
#include "paperloom/identity/RegistrationCoordinator.h"
#include "paperloom/network/AuthSessionManager.h"

namespace paperloom::reader {
namespace {

std::shared_ptr<const ContentAuthorisationProtocol> authorisation(const Account& account) {
  return std::make_shared<const ContentAuthorisation>(account.accessToken, account.refreshToken,
                                                      account.idToken);
}

}  // namespace

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
  host_.waitUntil([&] { return *finished; });
}

void Identity::keep(Account account, const ContentAuthorisationProtocol* tokens,
                    bool premium) const {
  if (tokens != nullptr) {
    account.accessToken = tokens->accessToken();
    account.refreshToken = tokens->refreshToken();
    account.idToken = tokens->idToken();
  }
  account.premium = premium;
  account.checkedAt = currentDate();
  store_.save(account);
}

LoginOperationResult Identity::login(const std::string& identifier, const std::string& password) {
  using Type = AuthenticationLoginCredentialType;
  const bool isEmail = identifier.find('@') != std::string::npos;
  const Type type = isEmail ? Type::emailAndPassword : Type::kxNumber;
  const auto operation =
      std::make_shared<LoginOperation>(identifier, password, type, authentication_);
  run(operation);

  const LoginOperationResult result = *operation->loginResult();
  Account account;
  account.identifier = identifier;
  account.credentialType = rawValue(type);
  if (const auto* in = std::get_if<LoginOperationResult::LoggedInAndPremium>(&result.value)) {
    keep(account, in->content.get(), true);
  } else if (const auto* plain =
                 std::get_if<LoginOperationResult::LoggedInAndNotPremium>(&result.value)) {
    keep(account, plain->content.get(), false);
  }
  return result;
}

CheckEntitlementOperationResult Identity::check(Account account) {
  using Outcome = CheckEntitlementOperationResult;
  const auto operation =
      std::make_shared<CheckEntitlementOperation>(authorisation(account), authentication_);
  run(operation);

  const Outcome result = *operation->result();
  if (const auto* premium = std::get_if<Outcome::Premium>(&result.value)) {
    keep(account, premium->newAuthorisation.get(), true);
  } else if (const auto* plain = std::get_if<Outcome::NotPremium>(&result.value)) {
    keep(account, plain->newAuthorisation.get(), false);
  } else if (std::holds_alternative<Outcome::RefreshTokenFailed>(result.value)) {
    keep(account, nullptr, false);
  }
  return result;
}

RefreshTokenThenCheckEntitlementsOperationResult Identity::refresh(Account account) {
  using Outcome = RefreshTokenThenCheckEntitlementsOperationResult;
  const auto operation = std::make_shared<RefreshTokenThenCheckEntitlementsOperation>(
      authorisation(account), authentication_);
  run(operation);

  const Outcome result = *operation->result();
  if (const auto* success = std::get_if<Outcome::Success>(&result.value)) {
    keep(account, success->contentAuthorisation.get(), success->premium == Premium::premium);
  } else if (std::holds_alternative<Outcome::RefreshTokenInvalid>(result.value)) {
    keep(account, nullptr, false);
  }
  return result;
}

UserRegistrationResult Identity::registerAccount(
    const RegistrationOperation::Arguments& arguments) {
  using Outcome = UserRegistrationResult;
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
    store_.save(account);
  }
  return result;
}

void Identity::unlink(Link link, const Account& account, const std::string& email) {
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
  host_.waitUntil([&] { return outcome->done; });
  if (outcome->error) throw Failure(*outcome->error);
}

}  // namespace paperloom::reader
