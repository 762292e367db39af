#include "apps/reader/AccountLogin.h"

#include <optional>
#include <utility>

#include "paperloom/identity/ContentAuthorisation.h"

namespace paperloom::reader {

std::shared_ptr<const ContentAuthorisationProtocol> authorisationOf(const Account& account) {
  return std::make_shared<const ContentAuthorisation>(account.accessToken, account.refreshToken,
                                                      account.idToken);
}

class AccountLogin::Begun final : public LoginStorage::Refresh {
 public:
  Begun(std::shared_ptr<AccountLogin> login, std::string refreshToken)
      : login_(std::move(login)), refreshToken_(std::move(refreshToken)) {
    const std::lock_guard lock(login_->mutex_);
    ++login_->underWay_;
  }
  ~Begun() override {
    room_.reset();
    const std::lock_guard lock(login_->mutex_);
    --login_->underWay_;
    login_->settled_.notify_all();
  }

  bool makeRoom() {
    return login_->attempt([&] { room_.emplace(login_->store_, login_->account_); });
  }

  Authorisation replacement() override {
    Authorisation other;
    login_->attempt([&] {
      const auto kept = login_->store_.load(Keyring::Ask::no);
      if (!kept || !kept->isSamePerson(login_->account_) || kept->refreshToken == refreshToken_) {
        return;
      }
      other = authorisationOf(*kept);
      login_->follow(kept->refreshToken);
    });
    return other;
  }

  // Somebody who has logged out, or in as somebody else, meanwhile wants nothing of it.
  void keep(const Authorisation& refreshed) override {
    login_->attempt([&] {
      login_->store_.change(refreshToken_, [&](Account& account) {
        account.accessToken = refreshed->accessToken();
        account.refreshToken = refreshed->refreshToken();
        account.idToken = refreshed->idToken();
      });
    });
    login_->follow(refreshed->refreshToken());
  }

 private:
  const std::shared_ptr<AccountLogin> login_;
  const std::string refreshToken_;
  std::optional<AccountStore::Refresh> room_;
};

std::unique_ptr<LoginStorage::Refresh> AccountLogin::beginRefresh(const std::string& refreshToken) {
  auto begun = std::make_unique<Begun>(shared_from_this(), refreshToken);
  if (!begun->makeRoom()) return nullptr;
  return begun;
}

void AccountLogin::settle() {
  std::unique_lock lock(mutex_);
  settled_.wait(lock, [&] { return underWay_ == 0; });
}

void AccountLogin::throwIfFailed() const {
  const std::lock_guard lock(mutex_);
  if (failure_) std::rethrow_exception(failure_);
}

std::string AccountLogin::refreshToken() const {
  const std::lock_guard lock(mutex_);
  return refreshToken_;
}

void AccountLogin::follow(const std::string& refreshToken) {
  const std::lock_guard lock(mutex_);
  refreshToken_ = refreshToken;
}

template <class Deed>
bool AccountLogin::attempt(Deed deed) {
  try {
    deed();
    return true;
  } catch (...) {
    const std::lock_guard lock(mutex_);
    failure_ = std::current_exception();
    return false;
  }
}

}  // namespace paperloom::reader
