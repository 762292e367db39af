#include "paperloom/identity/LoginKeeper.h"

#include <cstddef>
#include <deque>
#include <map>
#include <utility>
#include <variant>
#include <vector>

#include "paperloom/platform/Callback.h"
#include "paperloom/platform/FatalError.h"
#include "paperloom/platform/Mutex.h"

namespace paperloom {
namespace {

using Authorisation = LoginStorage::Authorisation;
using Answer = RequestResult<Authorisation>;
using Completion = AuthDataCoordinatorProtocol::AuthorisationCompletion;

// More than the refreshes that can happen while somebody still holds the tokens before them.
constexpr std::size_t mostSpentTokens = 32;

// A storage that is nothing but a place to put new tokens.
class CallbackStorage final : public LoginStorage {
 public:
  explicit CallbackStorage(LoginKeeper::Keep keep) : keep_(std::move(keep)) {}

  std::unique_ptr<Refresh> beginRefresh(const std::string&) override {
    return std::make_unique<Callback>(keep_);
  }

 private:
  struct Callback final : Refresh {
    explicit Callback(LoginKeeper::Keep call) : keep_(std::move(call)) {}
    Authorisation replacement() override { return nullptr; }
    void keep(const Authorisation& refreshed) override { call(keep_, refreshed); }
    LoginKeeper::Keep keep_;
  };

  LoginKeeper::Keep keep_;
};

bool isRefusal(const Answer& answer) {
  const auto* failed = std::get_if<request::FailedStatusCode>(&answer);
  return failed != nullptr && failed->statusCode == 401;
}

}  // namespace

struct LoginKeeper::State {
  // The tokens that took the place of a spent refresh token, by way of any number of refreshes;
  // null for one that has not been spent.
  Authorisation successor(const std::string& refreshToken) const PAPERLOOM_REQUIRES(mutex) {
    Authorisation latest;
    for (const auto& [token, next] : spent) {
      if (token == (latest ? latest->refreshToken() : refreshToken)) latest = next;
    }
    return latest;
  }

  std::shared_ptr<AuthDataCoordinatorProtocol> coordinator;
  std::shared_ptr<LoginStorage> storage;
  Mutex mutex;
  // Who waits for a refresh token that is on its way.
  std::map<std::string, std::vector<Completion>> waiting PAPERLOOM_GUARDED_BY(mutex);
  // Oldest first.
  std::deque<std::pair<std::string, Authorisation>> spent PAPERLOOM_GUARDED_BY(mutex);
};

// A refresh token on its way. Held by the completion of its request alone.
class LoginKeeper::Flight {
 public:
  Flight(std::shared_ptr<State> state, std::string refreshToken)
      : state_(std::move(state)), refreshToken_(std::move(refreshToken)) {}
  // A request may end without any answer; then nobody must wait for it any more.
  ~Flight() {
    const MutexLock lock(state_->mutex);
    land();
  }
  Flight(const Flight&) = delete;
  Flight& operator=(const Flight&) = delete;

  static void depart(const std::shared_ptr<Flight>& flight) {
    flight->refresh_ = flight->state_->storage->beginRefresh(flight->refreshToken_);
    if (!flight->refresh_) return flight->arrive(request::InternalError{});
    if (auto other = flight->refresh_->replacement()) {
      return flight->answer(request::Success<Authorisation>{std::move(other)});
    }
    flight->state_->coordinator->refreshToken(
        flight->refreshToken_, [flight](Answer answer) { flight->arrive(std::move(answer)); });
  }

 private:
  // Takes what the request brings, which may be two answers.
  void arrive(Answer answer) {
    if (const auto* success = std::get_if<request::Success<Authorisation>>(&answer)) {
      if (!refresh_) refresh_ = state_->storage->beginRefresh(refreshToken_);
      if (refresh_) refresh_->keep(success->item);
    } else if (refresh_ && isRefusal(answer)) {
      if (auto other = refresh_->replacement()) answer = request::Success<Authorisation>{other};
    }
    this->answer(std::move(answer));
  }

  void answer(Answer answer) {
    refresh_.reset();
    {
      const MutexLock lock(state_->mutex);
      if (const auto* success = std::get_if<request::Success<Authorisation>>(&answer)) {
        remember(success->item);
      }
      land();
    }
    for (const Completion& completion : waited_) call(completion, answer);
  }

  // A token that comes back may be used again.
  void remember(const Authorisation& next) PAPERLOOM_REQUIRES(state_->mutex) {
    if (next->refreshToken() == refreshToken_) return;
    state_->spent.emplace_back(refreshToken_, next);
    if (state_->spent.size() > mostSpentTokens) state_->spent.pop_front();
  }

  // From then on nobody joins; the next with the same token is a flight of its own.
  void land() PAPERLOOM_REQUIRES(state_->mutex) {
    if (std::exchange(hasLanded_, true)) return;
    waited_ = std::move(state_->waiting.extract(refreshToken_).mapped());
  }

  const std::shared_ptr<State> state_;
  const std::string refreshToken_;
  std::unique_ptr<LoginStorage::Refresh> refresh_;
  bool hasLanded_ PAPERLOOM_GUARDED_BY(state_->mutex) = false;
  std::vector<Completion> waited_;  // once it has landed
};

LoginKeeper::LoginKeeper(std::shared_ptr<AuthDataCoordinatorProtocol> coordinator, Keep keep)
    : LoginKeeper(std::move(coordinator), std::make_shared<CallbackStorage>(std::move(keep))) {}

LoginKeeper::LoginKeeper(std::shared_ptr<AuthDataCoordinatorProtocol> coordinator,
                         std::shared_ptr<LoginStorage> storage)
    : state_(std::make_shared<State>()) {
  state_->coordinator = required(std::move(coordinator), "a login keeper needs a coordinator");
  state_->storage = required(std::move(storage), "a login keeper needs a storage");
}

LoginKeeper::~LoginKeeper() = default;

void LoginKeeper::login(const std::string& identifier, const std::string& authKey,
                        AuthenticationLoginCredentialType credentialType,
                        AuthorisationCompletion completion) {
  state_->coordinator->login(identifier, authKey, credentialType, std::move(completion));
}

void LoginKeeper::checkEntitlement(const std::string& accessToken,
                                   EntitlementCompletion completion) {
  state_->coordinator->checkEntitlement(accessToken, std::move(completion));
}

void LoginKeeper::refreshToken(const std::string& refreshToken,
                               AuthorisationCompletion completion) {
  Authorisation known;
  std::shared_ptr<Flight> flight;
  {
    const MutexLock lock(state_->mutex);
    known = state_->successor(refreshToken);
    if (!known) {
      const auto [waiting, isFirst] = state_->waiting.try_emplace(refreshToken);
      waiting->second.push_back(std::move(completion));
      if (!isFirst) return;
      flight = std::make_shared<Flight>(state_, refreshToken);
    }
  }
  if (known) return call(completion, request::Success<Authorisation>{std::move(known)});
  Flight::depart(flight);
}

}  // namespace paperloom
