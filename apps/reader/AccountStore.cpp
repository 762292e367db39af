#include "apps/reader/AccountStore.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <nlohmann/json.hpp>
#include <random>

#include "apps/reader/Environment.h"
#include "apps/reader/RecordJSON.h"
#include "apps/reader/Text.h"
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
  if (!json.is_object()) return {};
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
  const std::string name = text(json, "keyringName").value_or("");
  if (name.empty() && (!access || !refresh || !id)) return {};

  Account account;
  account.keyringName = name;
  account.identifier = text(json, "identifier").value_or("");
  account.credentialType = text(json, "credentialType").value_or("");
  if (name.empty()) {
    account.accessToken = *access;
    account.refreshToken = *refresh;
    account.idToken = *id;
  }
  const auto premium = json.find("premium");
  if (premium != json.end() && premium->is_boolean()) account.premium = premium->get<bool>();
  if (const auto checked = text(json, "checkedAt")) {
    account.checkedAt = DateFormatter::shared().date(*checked);
  }
  return account;
}

// One that was never used and will not be again.
std::string freshName() {
  std::random_device random;
  return fmt::format("{:08x}{:08x}{:08x}{:08x}", random(), random(), random(), random());
}

// The keyring's dialog needs a desktop.
Keyring::Ask askIfPossible() {
  const bool isDesktop = !variable("DISPLAY").empty() || !variable("WAYLAND_DISPLAY").empty();
  return isDesktop ? Keyring::Ask::yes : Keyring::Ask::no;
}

bool isKeyringWanted() { return variable("PAPERLOOM_KEYRING") != "never"; }

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

Keyring::Answer::Kind AccountStore::fetchTokens(Account& account, Keyring::Ask ask) const {
  if (account.keyringName.empty()) return Keyring::Answer::Kind::done;
  auto seen = seen_.find(account.keyringName);
  if (seen == seen_.end()) {
    const Keyring::Answer answer = keyring_.find(account.keyringName, ask);
    if (answer.kind != Keyring::Answer::Kind::done) return answer.kind;
    const JSON json = JSON::parse(answer.secret, nullptr, false);
    const auto access = text(json, "accessToken");
    const auto refresh = text(json, "refreshToken");
    const auto id = text(json, "idToken");
    if (!access || !refresh || !id) return Keyring::Answer::Kind::missing;
    seen = seen_.emplace(account.keyringName, Tokens{*access, *refresh, *id}).first;
  }
  account.accessToken = seen->second.access;
  account.refreshToken = seen->second.refresh;
  account.idToken = seen->second.id;
  return Keyring::Answer::Kind::done;
}

void AccountStore::placeTokens(Account& account) {
  note_.clear();
  const Tokens tokens{account.accessToken, account.refreshToken, account.idToken};
  const auto seen = seen_.find(account.keyringName);
  if (isKeyringWanted() && seen != seen_.end() && seen->second == tokens) return;
  account.keyringName.clear();
  if (file_.path().empty() || !isKeyringWanted() || !keyring_.runs()) return;
  const std::string name = freshName();
  const JSON json = {
      {"accessToken", tokens.access}, {"refreshToken", tokens.refresh}, {"idToken", tokens.id}};
  const auto kind = keyring_.keep(name, dump(json, true)).kind;
  if (kind == Keyring::Answer::Kind::done) {
    account.keyringName = name;
    seen_[name] = tokens;
    return;
  }
  note_ = fmt::format("The desktop's keyring {}: the tokens lie in {}.",
                      kind == Keyring::Answer::Kind::locked ? "is locked" : "does not answer",
                      printableText(file_.path().string()));
}

void AccountStore::write(Account account) {
  placeTokens(account);
  JSON json = {{"identifier", account.identifier}, {"credentialType", account.credentialType}};
  if (account.keyringName.empty()) {
    json.update({{"accessToken", account.accessToken},
                 {"refreshToken", account.refreshToken},
                 {"idToken", account.idToken}});
  } else {
    json["keyringName"] = account.keyringName;
  }
  json.update({{"premium", account.premium ? JSON(*account.premium) : JSON()},
               {"checkedAt", account.checkedAt ? toJSON(*account.checkedAt) : JSON()}});
  file_.write(dump(json) + "\n");
  if (file_.path().empty()) return;
  removeLeftovers(file_.path().parent_path());
  if (note_.empty() && keyring_.runs()) keyring_.removeAllBut(account.keyringName);
}

std::optional<Account> AccountStore::peek() const {
  const auto held = lock(FileLock::Kind::shared);
  return read();
}

// The lock is not held while a person is asked to open the keyring; tokens that are gone then have
// been replaced, and the file says by which.
std::optional<Account> AccountStore::load(Keyring::Ask ask) const {
  using Kind = Keyring::Answer::Kind;
  Kind kind = Kind::missing;
  std::string missing;
  for (;;) {
    auto account = peek();
    if (!account) return account;
    if (kind == Kind::missing && account->keyringName == missing && !missing.empty()) {
      throw Failure("the desktop's keyring no longer holds the login; log in again");
    }
    kind = fetchTokens(*account, ask);
    if (kind == Kind::done) return account;
    if (kind == Kind::locked) {
      throw Failure("the login lies in the desktop's keyring, which is locked; unlock it first");
    }
    if (kind == Kind::gone) {
      throw Failure("the login lies in the desktop's keyring, which does not answer");
    }
    missing = account->keyringName;
  }
}

std::optional<Account> AccountStore::load() const { return load(askIfPossible()); }

void AccountStore::save(const Account& account) {
  if (isKeyringWanted() && keyring_.runs()) keyring_.unlock(askIfPossible());
  const auto held = lock(FileLock::Kind::exclusive);
  write(account);
}

bool AccountStore::change(const std::string& refreshToken,
                          const std::function<void(Account&)>& change) {
  const auto held = lock(FileLock::Kind::exclusive);
  auto account = read();
  if (!account || fetchTokens(*account, Keyring::Ask::no) != Keyring::Answer::Kind::done ||
      account->refreshToken != refreshToken) {
    return false;
  }
  change(*account);
  write(*account);
  return true;
}

bool AccountStore::remove() {
  note_.clear();
  const auto held = lock(FileLock::Kind::exclusive);
  bool inKeyring = false;
  try {
    const auto account = read();
    inKeyring = account && !account->keyringName.empty();
  } catch (const Failure&) {
    // What cannot be read can be removed.
  }
  const bool removed = file_.remove();
  if (file_.path().empty()) return removed;
  removeLeftovers(file_.path().parent_path());
  if (!inKeyring && !keyring_.runs()) return removed;
  const auto kind = keyring_.removeAllBut("").kind;
  if (kind != Keyring::Answer::Kind::done && inKeyring) {
    note_ = fmt::format("The desktop's keyring {} and still holds the tokens.",
                        kind == Keyring::Answer::Kind::locked ? "is locked" : "does not answer");
  }
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
    const auto account = store.peek();
    return {account.has_value(), account && account->premium.value_or(false)};
  } catch (const Failure&) {
    return {};
  }
}

}  // namespace paperloom::reader
