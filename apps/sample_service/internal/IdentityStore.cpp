#include "apps/sample_service/internal/IdentityStore.h"

#include <array>
#include <random>

namespace paperloom::sample {
namespace {

constexpr std::string_view byEmail = "EMAIL_PASSWORD";
constexpr std::size_t registrationLimit = 10'000;
constexpr std::size_t tokenLimit = 100'000;

std::string randomToken(std::string_view prefix) {
  static constexpr std::string_view digits = "0123456789abcdef";
  std::random_device source;
  std::string token(prefix);
  for (int word = 0; word < 6; ++word) {
    std::uint32_t bits = source();
    for (int digit = 0; digit < 8; ++digit, bits >>= 4) token += digits[bits & 15U];
  }
  return token;
}

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
  if (accessTokens_.size() >= tokenLimit) {
    std::erase_if(accessTokens_, [&](const auto& entry) { return entry.second.expiry <= now; });
  }
  if (accessTokens_.size() >= tokenLimit) accessTokens_.clear();
  if (refreshTokens_.size() >= tokenLimit) refreshTokens_.clear();

  Tokens tokens{randomToken("access-"), randomToken("refresh-"), randomToken("id-")};
  accessTokens_[tokens.accessToken] = {account, expired ? now : now + tokenLifetime_};
  if (!account->behaviour.refreshTokenRefused) refreshTokens_[tokens.refreshToken] = account;
  return tokens;
}

const IdentityStore::Access* IdentityStore::valid(const std::string& accessToken, Time now) const {
  const auto found = accessTokens_.find(accessToken);
  return found != accessTokens_.end() && now < found->second.expiry ? &found->second : nullptr;
}

tl::expected<IdentityStore::Tokens, int> IdentityStore::login(const std::string& identifier,
                                                              std::string_view authKey,
                                                              const std::string& credentialType,
                                                              Time now) {
  const std::lock_guard lock(mutex_);
  const auto found = accounts_.find({credentialType, identifier});
  if (found == accounts_.end() || found->second->authKey != authKey) {
    return tl::make_unexpected(401);
  }
  return issue(found->second, found->second->behaviour.loginTokenExpired, now);
}

tl::expected<IdentityStore::Tokens, int> IdentityStore::refresh(const std::string& refreshToken,
                                                                Time now) {
  const std::lock_guard lock(mutex_);
  const auto found = refreshTokens_.find(refreshToken);
  if (found == refreshTokens_.end()) return tl::make_unexpected(401);
  const auto account = found->second;
  if (account->behaviour.refreshStatus != 0) {
    return tl::make_unexpected(account->behaviour.refreshStatus);
  }
  refreshTokens_.erase(found);
  return issue(account, false, now);
}

int IdentityStore::entitlement(const std::string& accessToken, Time now) const {
  const std::lock_guard lock(mutex_);
  const Access* access = valid(accessToken, now);
  if (!access) return 401;
  const SampleAccount& behaviour = access->account->behaviour;
  if (behaviour.entitlementStatus != 0) return behaviour.entitlementStatus;
  return behaviour.premium ? 200 : 403;
}

tl::expected<IdentityStore::Registration, int> IdentityStore::registerAccount(
    const NewAccount& wanted, Time now) {
  const std::lock_guard lock(mutex_);
  if (accounts_.contains({std::string(byEmail), wanted.email})) return tl::make_unexpected(409);
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
  const Access* access = valid(accessToken, now);
  if (!access) return 401;
  const auto account = access->account;
  if (link == Link::email && email != account->identifier) return 404;
  if (account->links.erase(link) == 0) return 404;
  if (link == Link::email) accounts_.erase({account->credentialType, account->identifier});
  return 200;
}

}  // namespace paperloom::sample
