#pragma once

#include <condition_variable>
#include <exception>
#include <memory>
#include <mutex>
#include <string>

#include "apps/reader/AccountStore.h"
#include "paperloom/identity/LoginKeeper.h"

namespace paperloom::reader {

std::shared_ptr<const ContentAuthorisationProtocol> authorisationOf(const Account& account);

// The login of one account, kept in the store through the refreshes of one operation. What goes
// wrong with the store is kept, too, until the operation has ended.
class AccountLogin final : public LoginStorage, public std::enable_shared_from_this<AccountLogin> {
 public:
  AccountLogin(AccountStore& store, Account account)
      : store_(store), account_(std::move(account)), refreshToken_(account_.refreshToken) {}

  std::unique_ptr<Refresh> beginRefresh(const std::string& refreshToken) override;

  // Waits until no refresh token is on its way: one that was sent is spent, and only its answer
  // holds the login.
  void settle();
  // Throws what went wrong with the store.
  void throwIfFailed() const;
  // The one to which the refreshes have led.
  std::string refreshToken() const;
  bool isRefreshed() const { return refreshToken() != account_.refreshToken; }

 private:
  class Begun;
  void follow(const std::string& refreshToken);
  // Runs `deed` and keeps what it throws; says whether it threw nothing.
  template <class Deed>
  bool attempt(Deed deed);

  AccountStore& store_;
  const Account account_;
  mutable std::mutex mutex_;  // guards what follows
  std::condition_variable settled_;
  int underWay_ = 0;
  std::string refreshToken_;
  std::exception_ptr failure_;
};

}  // namespace paperloom::reader
