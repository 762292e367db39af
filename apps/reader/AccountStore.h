#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "apps/reader/ArticleView.h"
#include "apps/reader/FileLock.h"
#include "apps/reader/RecordFile.h"
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

  bool isSamePerson(const Account& other) const {
    return identifier == other.identifier && credentialType == other.credentialType;
  }
};

// The account of the person, a record that several processes share: one file that only its owner
// can read. Every function holds a lock for as long as it touches the file; a refresh holds another
// one from before its token is sent until the new tokens are kept, and keeps nobody else waiting.
// All functions throw Failure, also when another process does not let go of a lock.
class AccountStore {
 public:
  // The lock's file lies beside it, with "lock" for its extension.
  explicit AccountStore(std::filesystem::path file) : file_(std::move(file)) {}
  // An account of this process alone, which is on no disk.
  static AccountStore inMemory() { return AccountStore({}); }

  // Nothing when nobody is logged in, or the file is damaged.
  std::optional<Account> load() const;
  void save(const Account& account);
  // Changes the account if the one with this refresh token is still the one that is kept; says
  // whether it is.
  bool change(const std::string& refreshToken, const std::function<void(Account&)>& change);
  // Whether there was something to remove. Removes whatever an end by force has left, too.
  bool remove();

  // Makes sure that the tokens that are to come for this account can be kept.
  class Refresh {
   public:
    Refresh(AccountStore& store, const Account& account);
    ~Refresh();
    Refresh(const Refresh&) = delete;
    Refresh& operator=(const Refresh&) = delete;

   private:
    AccountStore& store_;
    std::optional<FileLock> lock_;
  };

 private:
  std::optional<FileLock> lock(FileLock::Kind kind) const;
  std::optional<Account> read() const;
  void write(const Account& account);

  RecordFile file_;
};

AccountStore accountStore(const Host& host);

// What the stored account may read; one that cannot be read is nobody's.
Access accessOf(const AccountStore& store);

}  // namespace paperloom::reader
