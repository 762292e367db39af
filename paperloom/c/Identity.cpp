// The calls to the identity service, for C.

#include <string>
#include <utility>

#include "paperloom/c/internal/Client.h"
#include "paperloom/c/internal/Struct.h"
#include "paperloom/c/internal/Text.h"
#include "paperloom/identity/LoginKeeper.h"
#include "paperloom/network/AuthSessionManager.h"
#include "paperloom/network/ContentSessionManager.h"
#include "paperloom/operations/CheckEntitlementOperation.h"
#include "paperloom/operations/LoginOperation.h"
#include "paperloom/operations/RefreshTokenThenCheckEntitlementsOperation.h"
#include "paperloom/operations/RegistrationOperation.h"

namespace paperloom::c {
namespace {

using Authorisation = std::shared_ptr<const ContentAuthorisationProtocol>;

LoginKeeper::Keep keeping(const Settings& settings) {
  return
      [keep = settings.keepTokens, userData = settings.keepUserData](const Authorisation& fresh) {
        if (keep == nullptr) return;
        const Tokens tokens = tokensOf(*fresh);
        const paperloom_tokens given = borrowed(tokens);
        keep(userData, &given);
      };
}

// Removals are never stored, so their session has a cache in memory alone.
URLSessionConfiguration withoutCache(URLSessionConfiguration configuration) {
  configuration.urlCache = nullptr;
  return configuration;
}

Outcome entitled(enum paperloom_entitlement entitlement, const Authorisation& fresh) {
  Outcome outcome{.entitlement = entitlement};
  if (fresh) outcome.tokens = tokensOf(*fresh);
  return outcome;
}

struct LoginOutcomes {
  using Result = LoginOperationResult;
  Outcome operator()(const Result::LoggedInAndPremium& in) const {
    return entitled(PAPERLOOM_ENTITLEMENT_PREMIUM, in.content);
  }
  Outcome operator()(const Result::LoggedInAndNotPremium& in) const {
    return entitled(PAPERLOOM_ENTITLEMENT_NOT_PREMIUM, in.content);
  }
  Outcome operator()(const Result::WrongUsernameAndPassword&) const {
    return {PAPERLOOM_WRONG_CREDENTIALS, "the identifier or the password is wrong"};
  }
  Outcome operator()(const Result::Error&) const {
    return {PAPERLOOM_IDENTITY_FAILED, "the login failed"};
  }
};

struct CheckOutcomes {
  using Result = CheckEntitlementOperationResult;
  Outcome operator()(const Result::Premium& premium) const {
    return entitled(PAPERLOOM_ENTITLEMENT_PREMIUM, premium.newAuthorisation);
  }
  Outcome operator()(const Result::NotPremium& plain) const {
    return entitled(PAPERLOOM_ENTITLEMENT_NOT_PREMIUM, plain.newAuthorisation);
  }
  Outcome operator()(const Result::RefreshTokenFailed&) const {
    return {PAPERLOOM_LOGIN_REQUIRED, "the tokens are accepted no more"};
  }
  Outcome operator()(const Result::OtherFailure&) const {
    return {PAPERLOOM_IDENTITY_FAILED, "the entitlement could not be learned"};
  }
};

struct RefreshOutcomes {
  using Result = RefreshTokenThenCheckEntitlementsOperationResult;
  Outcome operator()(const Result::Success& success) const {
    return entitled(success.premium == Premium::premium ? PAPERLOOM_ENTITLEMENT_PREMIUM
                                                        : PAPERLOOM_ENTITLEMENT_NOT_PREMIUM,
                    success.contentAuthorisation);
  }
  Outcome operator()(const Result::RefreshTokenInvalid&) const {
    return {PAPERLOOM_LOGIN_REQUIRED, "the tokens are accepted no more"};
  }
  Outcome operator()(const Result::OtherFailure&) const {
    return {PAPERLOOM_IDENTITY_FAILED, "the tokens could not be refreshed"};
  }
};

struct RegistrationOutcomes {
  using Result = UserRegistrationResult;
  Outcome operator()(const Result::RegisteredWithRefreshToken& made) const {
    return registered(made.registrationResult);
  }
  Outcome operator()(const Result::RegisteredWithoutRefreshToken& made) const {
    return registered(made.registrationResult);
  }
  Outcome operator()(const Result::BadRequest&) const {
    return {PAPERLOOM_BAD_REQUEST, "the service refuses these details"};
  }
  Outcome operator()(const Result::DuplicateAccount&) const {
    return {PAPERLOOM_DUPLICATE_ACCOUNT, "there is an account of this e-mail address already"};
  }
  Outcome operator()(const Result::Timeout&) const {
    return {PAPERLOOM_TIMEOUT, "no answer came in time"};
  }
  Outcome operator()(const Result::Failed&) const {
    return {PAPERLOOM_IDENTITY_FAILED, "the registration failed"};
  }

 private:
  static Outcome registered(const std::shared_ptr<const RegistrationResponseModelProtocol>& made) {
    const TokenProtocol& token = *made->token();
    Outcome outcome{.document = made};
    outcome.tokens = {token.accessToken(), token.refreshToken(), token.idToken()};
    return outcome;
  }
};

Authorisation authorisation(const std::optional<paperloom_tokens>& tokens) {
  if (!tokens) return nullptr;
  const auto access = string(tokens->access_token);
  const auto refresh = string(tokens->refresh_token);
  if (!access || !refresh) return nullptr;
  return std::make_shared<const ContentAuthorisation>(*access, *refresh,
                                                      string(tokens->id_token).value_or(""));
}

Authorisation readTokens(const paperloom_tokens* tokens) {
  return authorisation(readStruct(tokens));
}

// An identity request of a client; the client may be released before its end.
struct IdentityRequest {
  IdentityRequest(paperloom_client* owner, paperloom_callback callback, void* userData)
      : identity(owner != nullptr ? owner->identity : nullptr),
        request(Request::make(callback, userData)) {}

  // Whether there is all that the request needs; otherwise it is answered.
  bool isGood(bool hasArguments) const {
    if (identity && hasArguments && identity->hasURL) return true;
    if (identity && hasArguments) {
      request->answer({PAPERLOOM_CONFIGURATION_ERROR, "the client has no identity URL"});
    } else {
      request->answer({PAPERLOOM_INVALID_ARGUMENT,
                       identity ? "an argument of the request is missing" : "there is no client"});
    }
    return false;
  }

  // Starts the operation. Its own block keeps it until its end, and with it what it needs.
  template <class Operation, class Result, class Outcomes>
  paperloom_request start(const std::shared_ptr<Operation>& operation,
                          const std::optional<Result>& (Operation::*result)() const,
                          Outcomes outcomes) const {
    operation->setCompletionBlock(
        [request = request, identity = identity, operation, result, outcomes] {
          const std::optional<Result>& ended = (*operation.*result)();
          request->answer(ended ? std::visit(outcomes, ended->value)
                                : Outcome{PAPERLOOM_CANCELLED, "cancelled"});
        });
    operation->start();
    return request->number();
  }

  const std::shared_ptr<Identity> identity;
  const std::shared_ptr<Request> request;
};

}  // namespace

Identity::Identity(const Settings& settings)
    : hasURL(settings.identityURL.has_value()),
      linkedDetails(std::make_shared<ContentSessionManager>(withoutCache(settings.identity))) {
  const auto session = std::make_shared<AuthSessionManager>(settings.identity);
  const auto coordinator = std::make_shared<AuthDataCoordinator>(session);
  coordinator->setBaseURL(settings.identityURL);
  authentication = std::make_shared<LoginKeeper>(coordinator, keeping(settings));
  registration = std::make_shared<UserRegistrationDataCoordinator>(session);
  registration->setBaseURL(settings.identityURL);
  linkedDetails.setBaseURL(settings.identityURL);
}

}  // namespace paperloom::c

using namespace paperloom;
using namespace paperloom::c;

paperloom_request paperloom_login(paperloom_client* client, int32_t type, paperloom_text identifier,
                                  paperloom_text password, paperloom_callback callback,
                                  void* user_data) {
  const IdentityRequest request(client, callback, user_data);
  const auto name = c::string(identifier);
  const auto key = c::string(password);
  const bool isEmail = type == PAPERLOOM_EMAIL_AND_PASSWORD;
  if (!request.isGood(name && key && (isEmail || type == PAPERLOOM_SUBSCRIBER_NUMBER))) return 0;
  return request.start(
      std::make_shared<LoginOperation>(*name, *key,
                                       isEmail ? AuthenticationLoginCredentialType::emailAndPassword
                                               : AuthenticationLoginCredentialType::kxNumber,
                                       request.identity->authentication),
      &LoginOperation::loginResult, LoginOutcomes{});
}

paperloom_request paperloom_check_entitlement(paperloom_client* client,
                                              const paperloom_tokens* tokens,
                                              paperloom_callback callback, void* user_data) {
  const IdentityRequest request(client, callback, user_data);
  const auto known = readTokens(tokens);
  if (!request.isGood(known != nullptr)) return 0;
  return request.start(
      std::make_shared<CheckEntitlementOperation>(known, request.identity->authentication),
      &CheckEntitlementOperation::result, CheckOutcomes{});
}

paperloom_request paperloom_refresh_tokens(paperloom_client* client, const paperloom_tokens* tokens,
                                           paperloom_callback callback, void* user_data) {
  const IdentityRequest request(client, callback, user_data);
  const auto known = readTokens(tokens);
  if (!request.isGood(known != nullptr)) return 0;
  return request.start(std::make_shared<RefreshTokenThenCheckEntitlementsOperation>(
                           known, request.identity->authentication),
                       &RefreshTokenThenCheckEntitlementsOperation::result, RefreshOutcomes{});
}

paperloom_request paperloom_register(paperloom_client* client, const paperloom_new_account* account,
                                     paperloom_callback callback, void* user_data) {
  const IdentityRequest request(client, callback, user_data);
  const auto given = readStruct(account);
  const auto email = given ? c::string(given->email) : std::nullopt;
  const auto password = given ? c::string(given->password) : std::nullopt;
  if (!request.isGood(email && password)) return 0;
  return request.start(
      std::make_shared<RegistrationOperation>(
          RegistrationOperation::Arguments{.email = *email,
                                           .authKey = *password,
                                           .firstName = c::string(given->first_name).value_or(""),
                                           .lastName = c::string(given->last_name).value_or(""),
                                           .martketingOptIn = given->marketing_opt_in},
          request.identity->registration),
      &RegistrationOperation::registrationResult, RegistrationOutcomes{});
}

paperloom_request paperloom_unlink(paperloom_client* client, int32_t detail,
                                   const paperloom_tokens* tokens, paperloom_text email,
                                   paperloom_callback callback, void* user_data) {
  const IdentityRequest request(client, callback, user_data);
  const auto known = readStruct(tokens);
  const auto token = known ? c::string(known->access_token) : std::nullopt;
  const auto address = c::string(email);
  const bool isDetail = detail >= PAPERLOOM_LINKED_EMAIL && detail <= PAPERLOOM_LINKED_GOOGLE;
  if (!request.isGood(token && isDetail && (address || detail != PAPERLOOM_LINKED_EMAIL))) return 0;

  const auto success = [request] { request.request->answer({}); };
  const auto failed = [request](const PaperloomError& error) {
    request.request->answer(failure(error));
  };
  RegistrationCoordinator& details = request.identity->linkedDetails;
  if (detail == PAPERLOOM_LINKED_EMAIL) {
    details.deleteEmailDetails(*token, *address, success, failed);
  } else if (detail == PAPERLOOM_LINKED_FACEBOOK) {
    details.deleteFacebookDetails(*token, success, failed);
  } else {
    details.deleteGoogleDetails(*token, success, failed);
  }
  return request.request->number();
}
