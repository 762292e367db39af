#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "apps/reader/ArticleView.h"
#include "paperloom/platform/Date.h"

namespace paperloom::reader {

// What the reader knows of the person's account.
struct Account {
  std::string identifier;
  std::string credentialType;
  std::string accessToken;
  std::string refreshToken;
  std::string idToken;
  std::optional<bool> premium;  // as last told by the identity service
  std::optional<Date> checkedAt;
};

// Keeps the account in one file that only its owner can read, written whole or not at all.
class AccountStore {
 public:
  explicit AccountStore(std::filesystem::path file) : file_(std::move(file)) {}

  // Nothing when nobody is logged in, or the file is damaged.
  std::optional<Account> load() const;
  void save(const Account& account) const;
  // Whether there was something to remove.
  bool remove() const;

  const std::filesystem::path& file() const { return file_; }

 private:
  std::filesystem::path file_;
};

AccountStore accountStore(const Host& host);

// What the stored account may read; one that cannot be read is nobody's.
Access accessOf(const AccountStore& store);

}  // namespace paperloom::reader
