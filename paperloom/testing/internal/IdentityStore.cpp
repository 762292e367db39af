#include "paperloom/testing/internal/IdentityStore.h"

namespace paperloom::sample {
namespace {

constexpr std::string_view byEmail = "EMAIL_PASSWORD";
constexpr std::size_t registrationLimit = 10'000;
constexpr std::size_t usedLimit = 100'000;

}  // namespace

IdentityStore::IdentityStore(std::chrono::milliseconds tokenLifetime)
    : tokenLifetime_(tokenLifetime) {
  for (const SampleAccount& sample : sampleAccounts()) {
    auto account = std::make_shared<Account>();
    account->identifier = sample.identifier;
    account->authKey = sample.authKey;
    account->credentialType = sample.credentialType;
    account->behaviour = sample;
    account->links = {Link::facebook, Link::google};
    if (sample.credentialType == byEmail) account->links.insert(Link::email);
    add(std::move(account));
  }
}

void IdentityStore::add(std::shared_ptr<Account> account) {
  const auto key = std::pair(account->credentialType, account->identifier);
  accounts_.emplace(key, std::move(account));
}

IdentityStore::Tokens IdentityStore::issue(const std::shared_ptr<Account>& account, bool expired,
                                           Time now) {
  SealedToken token;
  token.credentialType = account->credentialType;
  token.identifier = account->identifier;
  token.kind = "access";
  token.serial = randomDigits(8);
  token.expiry = expired ? now : now + tokenLifetime_;
  const std::string access = token.seal();
  token.kind = "refresh";
  token.serial = randomDigits(8);
  token.expiry = Time::max();
  return {access, token.seal(), "id-" + randomDigits(24)};
}

std::shared_ptr<IdentityStore::Account> IdentityStore::accountOf(const SealedToken& token) {
  const auto found = accounts_.find({token.credentialType, token.identifier});
  if (found != accounts_.end()) return found->second;
  auto account = std::make_shared<Account>();
  account->identifier = token.identifier;
  account->authKey = randomDigits(16);
  account->credentialType = token.credentialType;
  account->links = {Link::email};
  add(account);
  return account;
}

std::shared_ptr<IdentityStore::Account> IdentityStore::accessedBy(const std::string& accessToken,
                                                                  Time now) {
  const auto token = SealedToken::open(accessToken);
  if (!token || token->kind != "access" || now >= token->expiry) return nullptr;
  return accountOf(*token);
}

bool IdentityStore::cannotLogIn(const Account& account) {
  return account.credentialType == byEmail && !account.links.contains(Link::email);
}

tl::expected<IdentityStore::Tokens, int> IdentityStore::login(const std::string& identifier,
                                                              std::string_view authKey,
                                                              const std::string& credentialType,
                                                              Time now) {
  const std::lock_guard lock(mutex_);
  const auto found = accounts_.find({credentialType, identifier});
  if (found == accounts_.end() || found->second->authKey != authKey ||
      cannotLogIn(*found->second)) {
    return tl::make_unexpected(401);
  }
  return issue(found->second, found->second->behaviour.loginTokenExpired, now);
}

tl::expected<IdentityStore::Tokens, int> IdentityStore::refresh(const std::string& refreshToken,
                                                                Time now) {
  const std::lock_guard lock(mutex_);
  const auto token = SealedToken::open(refreshToken);
  if (!token || token->kind != "refresh" || usedSerials_.contains(token->serial)) {
    return tl::make_unexpected(401);
  }
  const auto account = accountOf(*token);
  if (account->behaviour.refreshTokenRefused) return tl::make_unexpected(401);
  if (account->behaviour.refreshStatus != 0) {
    return tl::make_unexpected(account->behaviour.refreshStatus);
  }
  if (usedSerials_.size() == usedLimit) usedSerials_.clear();
  usedSerials_.insert(token->serial);
  return issue(account, false, now);
}

int IdentityStore::entitlement(const std::string& accessToken, Time now) {
  const std::lock_guard lock(mutex_);
  const auto account = accessedBy(accessToken, now);
  if (!account) return 401;
  const SampleAccount& behaviour = account->behaviour;
  if (behaviour.entitlementStatus != 0) return behaviour.entitlementStatus;
  return behaviour.premium ? 200 : 403;
}

tl::expected<IdentityStore::Registration, int> IdentityStore::registerAccount(
    const NewAccount& wanted, Time now) {
  const std::lock_guard lock(mutex_);
  const auto known = accounts_.find({std::string(byEmail), wanted.email});
  if (known != accounts_.end()) {
    if (!cannotLogIn(*known->second)) return tl::make_unexpected(409);
    accounts_.erase(known);
  }
  if (registrations_ == registrationLimit) return tl::make_unexpected(503);
  ++registrations_;

  auto account = std::make_shared<Account>();
  account->identifier = wanted.email;
  account->authKey = wanted.authKey;
  account->credentialType = byEmail;
  account->links = {Link::email};
  add(account);
  return Registration{"/accounts/" + std::to_string(5000 + registrations_),
                      issue(account, false, now)};
}

int IdentityStore::removeLink(Link link, const std::string& accessToken, const std::string& email,
                              Time now) {
  const std::lock_guard lock(mutex_);
  const auto account = accessedBy(accessToken, now);
  if (!account) return 401;
  if (link == Link::email && email != account->identifier) return 404;
  if (account->links.erase(link) == 0) return 404;
  return 200;
}

}  // namespace paperloom::sample
