#pragma once

#include <chrono>
#include <cstddef>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <string_view>
#include <utility>

#include <tl/expected.hpp>

#include "paperloom/testing/SampleAccounts.h"
#include "paperloom/testing/internal/SealedToken.h"

namespace paperloom::sample {

// The accounts of one service. Tokens are signed, so that one service of this program honours what
// another has given out; a refresh token is good for one refresh in each. Accounts made by
// registration can log in as long as the service lives. Failures are the HTTP statuses that tell
// them. Any thread.
class IdentityStore {
 public:
  using Time = SealedToken::Time;

  struct Tokens {
    std::string accessToken;
    std::string refreshToken;
    std::string idToken;
  };

  struct NewAccount {
    std::string email;
    std::string authKey;
    std::string firstName;
    std::string lastName;
  };

  struct Registration {
    std::string id;
    Tokens tokens;
  };

  enum class Link { email, facebook, google };

  explicit IdentityStore(std::chrono::milliseconds tokenLifetime);

  std::chrono::milliseconds tokenLifetime() const { return tokenLifetime_; }

  // 401: no such account, or another authKey.
  tl::expected<Tokens, int> login(const std::string& identifier, std::string_view authKey,
                                  const std::string& credentialType, Time now);

  // 401: unknown, used before, or refused.
  tl::expected<Tokens, int> refresh(const std::string& refreshToken, Time now);

  // The status: 200 premium, 403 not premium, 401 unknown or past its time.
  int entitlement(const std::string& accessToken, Time now);

  // 409: the e-mail has an account; 503: the service takes no more accounts.
  tl::expected<Registration, int> registerAccount(const NewAccount& account, Time now);

  // The status: 200, 401 for a bad access token, 404 when the account has no such link (any more)
  // or another e-mail. An account without its e-mail link cannot log in with it.
  int removeLink(Link link, const std::string& accessToken, const std::string& email, Time now);

 private:
  struct Account {
    std::string identifier;
    std::string authKey;
    std::string credentialType;
    SampleAccount behaviour;
    std::set<Link> links;
  };
  void add(std::shared_ptr<Account> account);
  Tokens issue(const std::shared_ptr<Account>& account, bool expired, Time now);
  // Its e-mail link is removed.
  static bool cannotLogIn(const Account& account);
  // An account that this service does not know was made in another one.
  std::shared_ptr<Account> accountOf(const SealedToken& token);
  // Null without a good access token.
  std::shared_ptr<Account> accessedBy(const std::string& accessToken, Time now);

  const std::chrono::milliseconds tokenLifetime_;
  std::mutex mutex_;  // guards what follows
  std::map<std::pair<std::string, std::string>, std::shared_ptr<Account>> accounts_;
  std::set<std::string> usedSerials_;  // of refresh tokens
  std::size_t registrations_ = 0;
};

}  // namespace paperloom::sample
