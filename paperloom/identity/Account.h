#pragma once

#include <functional>
#include <memory>
#include <string>
#include <tl/expected.hpp>
#include <utility>

#include "paperloom/identity/AuthDataCoordinator.h"
#include "paperloom/identity/RegistrationCoordinator.h"
#include "paperloom/identity/UserRegistrationDataCoordinator.h"
#include "paperloom/platform/Pending.h"

namespace paperloom {

// The identity coordinators' requests in the form of answers to wait for, beside their callbacks:
//
//   const auto login = co_await Account(coordinator).login(email, password, type);
//
// Of two answers to one request the first counts; one that ends without any, as an entitlement
// check without a base URL does, is answered with InternalError, and so is one whose owner has
// gone: the request itself goes on, since it may change an account. The coordinator outlives every
// request that is still to be made. Safe from any thread.
class Account {
 public:
  using Authorisation = RequestResult<std::shared_ptr<const ContentAuthorisationProtocol>>;

  explicit Account(AuthDataCoordinatorProtocol& coordinator, const Subscription* owner = nullptr)
      : coordinator_(&coordinator), owner_(owner != nullptr ? owner->token() : nullptr) {}

  // AuthDataCoordinatorProtocol::login().
  Pending<Authorisation> login(std::string identifier, std::string authKey,
                               AuthenticationLoginCredentialType type) const {
    return pending<Authorisation>([=, c = coordinator_](auto answer) {
      c->login(identifier, authKey, type, std::move(answer));
    });
  }

  // AuthDataCoordinatorProtocol::checkEntitlement().
  Pending<RequestResult<Entitlement>> checkEntitlement(std::string accessToken) const {
    return pending<RequestResult<Entitlement>>([=, c = coordinator_](auto answer) {
      c->checkEntitlement(accessToken, std::move(answer));
    });
  }

  // AuthDataCoordinatorProtocol::refreshToken().
  Pending<Authorisation> refreshToken(std::string refreshToken) const {
    return pending<Authorisation>(
        [=, c = coordinator_](auto answer) { c->refreshToken(refreshToken, std::move(answer)); });
  }

 private:
  template <class T>
  Pending<T> pending(std::function<void(typename Pending<T>::Answer)> start) const {
    return {std::move(start), [] { return T(request::InternalError{}); }, owner_};
  }

  AuthDataCoordinatorProtocol* coordinator_;
  std::shared_ptr<Subscription::Token> owner_;
};

// A new account: UserRegistrationDataCoordinatorProtocol::registerAccount().
inline auto registeredAccount(UserRegistrationDataCoordinatorProtocol& coordinator,
                              std::string email, std::string authKey, std::string firstName,
                              std::string lastName, bool marketingOptIn) {
  using Result = RequestResult<std::shared_ptr<const RegistrationResponseModelProtocol>>;
  return Pending<Result>(
      [=, c = &coordinator](Pending<Result>::Answer answer) {
        c->registerAccount(email, authKey, firstName, lastName, marketingOptIn, std::move(answer));
      },
      [] { return Result(request::InternalError{}); });
}

// Whether a way of signing in was removed: the three requests of RegistrationCoordinatorProtocol.
using Unlinked = tl::expected<Nothing, PaperloomError>;

// `remove` makes the request: `unlinked([&](auto done, auto failed) {
// coordinator.deleteGoogleDetails(token, done, failed); })`. Answers where that does.
template <class Remove>
Pending<Unlinked> unlinked(Remove remove) {
  return {[remove = std::move(remove)](Pending<Unlinked>::Answer answer) {
            remove(
                [answer] { answer(Nothing{}); },
                [answer](PaperloomError error) { answer(tl::make_unexpected(std::move(error))); });
          },
          [] { return Unlinked(tl::make_unexpected(PaperloomError::networkError("cancelled"))); }};
}

}  // namespace paperloom
