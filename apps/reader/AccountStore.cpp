#include "apps/reader/AccountStore.h"

#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <nlohmann/json.hpp>

#include "apps/reader/RecordJSON.h"
#include "paperloom/platform/DateFormatter.h"

namespace paperloom::reader {
namespace {

// Bytes of the lock's file.
constexpr off_t fileLock = 0;
constexpr off_t refreshLock = 1;
// The first is held while a disk works, the second while a service is asked.
constexpr std::chrono::seconds filePatience{5};
constexpr std::chrono::seconds refreshPatience{60};

std::filesystem::path lockFile(const std::filesystem::path& file) {
  return std::filesystem::path(file).replace_extension("lock");
}

std::optional<std::string> text(const JSON& json, const char* key) {
  const auto found = json.find(key);
  if (found == json.end() || !found->is_string()) return {};
  return found->get<std::string>();
}

std::optional<Account> parse(const std::string& bytes) {
  const JSON json = JSON::parse(bytes, nullptr, false);
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

// Readers before this one wrote a file ".paperloom-XXXXXX" that took the name of the account's when
// it was whole; one that was ended by force left it with all its secrets.
void removeLeftovers(const std::filesystem::path& folder) {
  constexpr std::string_view prefix = ".paperloom-";
  std::error_code ignored;
  for (const auto& entry : std::filesystem::directory_iterator(folder, ignored)) {
    const std::string name = entry.path().filename().string();
    const bool isOne = name.size() == prefix.size() + 6 && name.starts_with(prefix) &&
                       std::all_of(name.begin() + prefix.size(), name.end(), [](char c) {
                         return std::isalnum(static_cast<unsigned char>(c)) != 0;
                       });
    if (isOne) ::unlink(entry.path().c_str());
  }
  std::filesystem::remove(folder / "demo-account.json", ignored);
}

}  // namespace

std::optional<FileLock> AccountStore::lock(FileLock::Kind kind) const {
  if (file_.path().empty()) return {};
  return FileLock(lockFile(file_.path()), fileLock, kind, filePatience,
                  FileLock::Wait::uninterrupted);
}

std::optional<Account> AccountStore::read() const {
  for (const std::string& text : file_.texts()) {
    if (auto account = parse(text)) return account;
  }
  return {};
}

void AccountStore::write(const Account& account) {
  const JSON json = {{"identifier", account.identifier},
                     {"credentialType", account.credentialType},
                     {"accessToken", account.accessToken},
                     {"refreshToken", account.refreshToken},
                     {"idToken", account.idToken},
                     {"premium", account.premium ? JSON(*account.premium) : JSON()},
                     {"checkedAt", account.checkedAt ? toJSON(*account.checkedAt) : JSON()}};
  file_.write(dump(json) + "\n");
  if (!file_.path().empty()) removeLeftovers(file_.path().parent_path());
}

std::optional<Account> AccountStore::load() const {
  const auto held = lock(FileLock::Kind::shared);
  return read();
}

void AccountStore::save(const Account& account) {
  const auto held = lock(FileLock::Kind::exclusive);
  write(account);
}

bool AccountStore::change(const std::string& refreshToken,
                          const std::function<void(Account&)>& change) {
  const auto held = lock(FileLock::Kind::exclusive);
  auto account = read();
  if (!account || account->refreshToken != refreshToken) return false;
  change(*account);
  write(*account);
  return true;
}

bool AccountStore::remove() {
  const auto held = lock(FileLock::Kind::exclusive);
  const bool removed = file_.remove();
  if (!file_.path().empty()) removeLeftovers(file_.path().parent_path());
  return removed;
}

AccountStore::Refresh::Refresh(AccountStore& store, const Account& account) : store_(store) {
  if (store_.file_.path().empty()) return;
  lock_.emplace(lockFile(store_.file_.path()), refreshLock, FileLock::Kind::exclusive,
                refreshPatience, FileLock::Wait::untilSignal);
  const auto held = store_.lock(FileLock::Kind::exclusive);
  const auto kept = store_.read();
  if (!kept || !kept->isSamePerson(account)) {
    throw Failure("the account has changed meanwhile; nothing is refreshed");
  }
  store_.file_.reserve();
}

AccountStore::Refresh::~Refresh() {
  try {
    const auto held = store_.lock(FileLock::Kind::exclusive);
    store_.file_.release();
  } catch (const Failure&) {
    // The room comes back with the next account that is kept.
  }
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
