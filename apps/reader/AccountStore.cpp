#include "apps/reader/AccountStore.h"

#include <fmt/format.h>

#include <nlohmann/json.hpp>

#include "apps/reader/Files.h"
#include "apps/reader/RecordJSON.h"
#include "apps/reader/Text.h"
#include "paperloom/platform/DateFormatter.h"

namespace paperloom::reader {
namespace {

std::optional<std::string> text(const JSON& json, const char* key) {
  const auto found = json.find(key);
  if (found == json.end() || !found->is_string()) return {};
  return found->get<std::string>();
}

}  // namespace

std::optional<Account> AccountStore::load() const {
  const auto bytes = readFileIfPresent(file_);
  if (!bytes) return {};
  const JSON json = JSON::parse(*bytes, nullptr, false);
  if (!json.is_object()) return {};
  const auto access = text(json, "accessToken");
  const auto refresh = text(json, "refreshToken");
  const auto id = text(json, "idToken");
  if (!access || !refresh || !id) return {};

  Account account;
  account.identifier = text(json, "identifier").value_or("");
  account.credentialType = text(json, "credentialType").value_or("");
  account.accessToken = *access;
  account.refreshToken = *refresh;
  account.idToken = *id;
  const auto premium = json.find("premium");
  if (premium != json.end() && premium->is_boolean()) account.premium = premium->get<bool>();
  if (const auto checked = text(json, "checkedAt")) {
    account.checkedAt = DateFormatter::shared().date(*checked);
  }
  return account;
}

void AccountStore::save(const Account& account) const {
  JSON json = {{"identifier", account.identifier},
               {"credentialType", account.credentialType},
               {"accessToken", account.accessToken},
               {"refreshToken", account.refreshToken},
               {"idToken", account.idToken},
               {"premium", account.premium ? JSON(*account.premium) : JSON()},
               {"checkedAt", account.checkedAt ? toJSON(*account.checkedAt) : JSON()}};
  writeWholeFile(file_, dump(json) + "\n", 0600, Durable::yes);
}

bool AccountStore::remove() const {
  std::error_code error;
  const bool removed = std::filesystem::remove(file_, error);
  if (error) {
    throw Failure(
        fmt::format("cannot remove {}: {}", printableLine(file_.string()), error.message()));
  }
  return removed;
}

AccountStore accountStore(const Host& host) { return AccountStore(host.file("account.json")); }

Access accessOf(const AccountStore& store) {
  try {
    const auto account = store.load();
    return {account.has_value(), account && account->premium.value_or(false)};
  } catch (const Failure&) {
    return {};
  }
}

}  // namespace paperloom::reader
