#pragma once

#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "apps/reader/ArticleView.h"
#include "apps/reader/FileLock.h"
#include "apps/reader/Keyring.h"
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
  std::string keyringName;  // of the tokens in the desktop's keyring; empty when the file has them

  bool isSamePerson(const Account& other) const {
    return identifier == other.identifier && credentialType == other.credentialType;
  }
};

// The account of the person, a record that several processes share: one file that only its owner
// can read. Every function holds a lock for as long as it touches the file; a refresh holds another
// one from before its token is sent until the new tokens are kept, and keeps nobody else waiting.
// All functions throw Failure, also when another process does not let go of a lock.
//
// Where the desktop's keyring runs and is open, the tokens lie there, under a name that is used for
// these tokens only, and the file holds the name: so the file alone says which tokens count, and an
// end by force between the two leaves tokens that the next change removes. Tokens that the keyring
// does not take are kept in the file, and move with the next change for which it is open; with
// PAPERLOOM_KEYRING=never in the environment all of them do, and those that it holds come back.
class AccountStore {
 public:
  // The lock's file lies beside it, with "lock" for its extension.
  explicit AccountStore(std::filesystem::path file)
      : file_(std::move(file)), keyring_(file_.path().parent_path().string()) {}
  // An account of this process alone, which is on no disk.
  static AccountStore inMemory() { return AccountStore({}); }

  // Nothing when nobody is logged in, or the file is damaged. A keyring that is locked is asked to
  // be opened; one that does not hand over the tokens is a Failure.
  std::optional<Account> load() const;
  std::optional<Account> load(Keyring::Ask ask) const;
  // The same without tokens that are not in the file.
  std::optional<Account> peek() const;
  void save(const Account& account);
  // Changes the account if the one with this refresh token is still the one that is kept; says
  // whether it is.
  bool change(const std::string& refreshToken, const std::function<void(Account&)>& change);
  // Whether there was something to remove. Removes whatever an end by force has left, too.
  bool remove();

  // A sentence on tokens that lie elsewhere than they should since the last change; empty when none
  // do.
  const std::string& note() const { return note_; }

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
  struct Tokens {
    std::string access;
    std::string refresh;
    std::string id;
    bool operator==(const Tokens&) const = default;
  };

  std::optional<FileLock> lock(FileLock::Kind kind) const;
  std::optional<Account> read() const;
  // Fills in the tokens; says what stands in the way.
  Keyring::Answer::Kind fetchTokens(Account& account, Keyring::Ask ask) const;
  // Puts new tokens into the keyring, if it takes them.
  void placeTokens(Account& account);
  void write(Account account);

  RecordFile file_;
  Keyring keyring_;
  std::string note_;
  // What the keyring holds, as far as this process has seen it: names are never used again.
  mutable std::map<std::string, Tokens> seen_;
};

AccountStore accountStore(const Host& host);

// What the stored account may read; one that cannot be read is nobody's.
Access accessOf(const AccountStore& store);

}  // namespace paperloom::reader
