#include "apps/reader/IdentityWords.h"

#include "apps/reader/Text.h"

namespace paperloom::reader {
namespace {

std::string access(bool premium) {
  return premium ? "premium stories are open." : "premium stories stay behind their wall.";
}

struct LoginWords {
  using Outcome = LoginOperationResult;
  std::string operator()(const Outcome::LoggedInAndPremium&) const {
    return "Logged in; " + access(true);
  }
  std::string operator()(const Outcome::LoggedInAndNotPremium&) const {
    return "Logged in; " + access(false);
  }
  std::string operator()(const Outcome::WrongUsernameAndPassword&) const {
    return "the service does not know this identifier with this password";
  }
  std::string operator()(const Outcome::Error&) const {
    return "the login failed; nothing has changed";
  }
};

constexpr auto notLearned = "the tokens are new, but the entitlement could not be learned";

struct CheckWords {
  using Outcome = CheckEntitlementOperationResult;
  bool refreshed;
  std::string operator()(const Outcome::Premium& outcome) const {
    return (outcome.newAuthorisation ? "Premium, after a refresh; " : "Premium; ") + access(true);
  }
  std::string operator()(const Outcome::NotPremium& outcome) const {
    return (outcome.newAuthorisation ? "Not premium, after a refresh; " : "Not premium; ") +
           access(false);
  }
  std::string operator()(const Outcome::RefreshTokenFailed&) const {
    return "the login is no longer valid; log in again";
  }
  std::string operator()(const Outcome::OtherFailure&) const {
    return refreshed ? notLearned : "the entitlement could not be learned; what was known stays";
  }
};

struct RefreshWords {
  using Outcome = RefreshTokenThenCheckEntitlementsOperationResult;
  bool refreshed;
  std::string operator()(const Outcome::Success& outcome) const {
    return "The tokens are new; " + access(outcome.premium == Premium::premium);
  }
  std::string operator()(const Outcome::RefreshTokenInvalid&) const {
    return "the login is no longer valid; log in again";
  }
  std::string operator()(const Outcome::OtherFailure&) const {
    return refreshed ? notLearned : "the tokens could not be refreshed";
  }
};

struct RegistrationWords {
  using Outcome = UserRegistrationResult;
  std::string operator()(const Outcome::RegisteredWithRefreshToken& outcome) const {
    return welcome(*outcome.registrationResult) + "The account is made and logged in.";
  }
  std::string operator()(const Outcome::RegisteredWithoutRefreshToken& outcome) const {
    return welcome(*outcome.registrationResult) + "The account is made; now log in.";
  }
  std::string operator()(const Outcome::BadRequest&) const {
    return "the service does not accept these details";
  }
  std::string operator()(const Outcome::DuplicateAccount&) const {
    return "there is an account with this e-mail address already";
  }
  std::string operator()(const Outcome::Timeout&) const {
    return "the service did not answer; the account may or may not be made";
  }
  std::string operator()(const Outcome::Failed&) const {
    return "the service gave no usable answer; the account may or may not be made";
  }

  static std::string welcome(const RegistrationResponseModelProtocol& person) {
    return "Welcome, " + printableLine(person.firstName()) + ". ";
  }
};

}  // namespace

std::string sentence(const LoginOperationResult& result) {
  return std::visit(LoginWords(), result.value);
}

std::string sentence(const CheckEntitlementOperationResult& result, bool refreshed) {
  return std::visit(CheckWords{refreshed}, result.value);
}

std::string sentence(const RefreshTokenThenCheckEntitlementsOperationResult& result,
                     bool refreshed) {
  return std::visit(RefreshWords{refreshed}, result.value);
}

std::string sentence(const UserRegistrationResult& result) {
  return std::visit(RegistrationWords(), result.value);
}

std::string unlinkSentence(const PaperloomError& error) {
  if (error.details() != "Response code 401") return error.details();
  return error.details() + ", the access token is no longer accepted; refresh first";
}

}  // namespace paperloom::reader
