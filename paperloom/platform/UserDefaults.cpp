#include "paperloom/platform/UserDefaults.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <chrono>
#include <map>
#include <mutex>
#include <thread>
#include <utility>
#include <variant>

#include "paperloom/platform/ApplicationDirectories.h"
#include "paperloom/platform/internal/base/PrivateFolders.h"
#include "paperloom/platform/internal/sqlite/SQLite.h"

namespace paperloom {
namespace {

using internal::SQLiteDatabase;
using internal::SQLiteError;
using internal::SQLiteResult;
using internal::SQLiteStatement;
using internal::SQLiteStatus;
using Value = std::variant<double, std::string>;

constexpr std::chrono::seconds lockWait{2};

// Lets one process or thread at a time look whether the file is damaged and set it aside.
class OpeningLock {
 public:
  explicit OpeningLock(const std::filesystem::path& file) {
    const std::string name = file.string() + ".lock";
    descriptor_ = ::open(name.c_str(), O_CREAT | O_RDWR | O_CLOEXEC, 0600);
    const auto end = std::chrono::steady_clock::now() + lockWait;
    while (descriptor_ >= 0 && ::flock(descriptor_, LOCK_EX | LOCK_NB) != 0) {
      if (std::chrono::steady_clock::now() > end) return;
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    held_ = descriptor_ >= 0;
  }
  ~OpeningLock() {
    if (descriptor_ >= 0) ::close(descriptor_);
  }
  OpeningLock(const OpeningLock&) = delete;
  OpeningLock& operator=(const OpeningLock&) = delete;

  bool held() const { return held_; }

 private:
  int descriptor_ = -1;
  bool held_ = false;
};

// EXTRA also brings the removal of the rollback journal to the disk: without that, a power cut
// right after a commit could bring the old values back.
SQLiteStatus prepareSchema(SQLiteDatabase& database) {
  return database.execute(
      "PRAGMA journal_mode=DELETE; PRAGMA synchronous=EXTRA;"
      "CREATE TABLE IF NOT EXISTS defaults(key TEXT PRIMARY KEY NOT NULL, value) WITHOUT ROWID;"
      "SELECT key, value FROM defaults LIMIT 1");
}

// Whether the bytes are wrong, or are a sound database of somebody else's. A lock, a full disk and
// the like say nothing about it.
bool isDamaged(SQLiteDatabase& database) {
  auto check = database.prepare("PRAGMA integrity_check(1)");
  if (!check) return check.error().isCorruption();
  const auto row = check->step();
  if (!row) return row.error().isCorruption();
  if (!*row || check->text(0) != "ok") return true;
  const auto tables = database.integer("SELECT count(*) FROM sqlite_schema");
  const auto ours = database.integer(
      "SELECT count(*) FROM sqlite_schema, pragma_table_info('defaults') AS field "
      "WHERE sqlite_schema.name = 'defaults' AND field.name IN ('key', 'value')");
  return tables && ours && *tables > 0 && *ours != 2;
}

}  // namespace

class UserDefaults::Store {
 public:
  explicit Store(std::filesystem::path file) : file_(std::move(file)) {}

  std::optional<Value> value(std::string_view key) {
    const std::lock_guard lock(mutex_);
    if (const auto changed = changes_.find(key); changed != changes_.end()) return changed->second;
    std::error_code error;
    if (database_ || std::filesystem::exists(file_, error)) refresh();
    const auto known = known_.find(key);
    return known != known_.end() ? std::optional(known->second) : std::nullopt;
  }

  void change(std::string_view key, std::optional<Value> value) {
    const std::lock_guard lock(mutex_);
    changes_.insert_or_assign(std::string(key), std::move(value));
  }

  bool synchronize() {
    const std::lock_guard lock(mutex_);
    if (changes_.empty()) return true;
    if (write()) return true;
    // What was damaged is found and set aside when the file is opened again.
    close();
    return write();
  }

 private:
  bool open() {
    if (database_) return true;
    if (file_.empty() || !internal::createPrivateFolders(file_.parent_path())) return false;
    const OpeningLock lock(file_);
    if (!lock.held()) return false;
    auto opened = SQLiteDatabase::open(file_, lockWait);
    if (!opened) return false;
    if (isDamaged(*opened)) {
      opened->copyFile(file_.string() + ".damaged");
      *opened = {};
      opened = SQLiteDatabase::open(file_, lockWait);
      if (!opened || !opened->resetFile()) return false;
    }
    if (!prepareSchema(*opened)) return false;
    database_ = std::move(*opened);
    version_ = -1;
    return true;
  }

  void close() { database_ = {}; }

  void refresh() {
    if (load()) return;
    close();
    load();
  }

  // What was read last stays when the file cannot be read.
  bool load() {
    if (!open()) return false;
    const auto version = database_.integer("PRAGMA data_version");
    if (!version) return false;
    if (*version == version_) return true;
    auto select = database_.prepare("SELECT key, value FROM defaults");
    if (!select) return false;
    std::map<std::string, Value, std::less<>> values;
    for (;;) {
      const auto row = select->step();
      if (!row) return false;
      if (!*row) break;
      const auto key = select->text(0);
      if (!key) continue;
      if (const auto number = select->real(1)) {
        values.emplace(*key, *number);
      } else if (const auto text = select->text(1)) {
        values.emplace(*key, std::string(*text));
      }
    }
    known_ = std::move(values);
    version_ = *version;
    return true;
  }

  bool write() {
    if (!load() || !database_.execute("BEGIN IMMEDIATE")) return false;
    if (!writeChanges() || !database_.execute("COMMIT")) {
      static_cast<void>(database_.execute("ROLLBACK"));
      return false;
    }
    for (auto& [key, value] : changes_) {
      known_.erase(key);
      if (value) known_.emplace(key, std::move(*value));
    }
    changes_.clear();
    return true;
  }

  bool writeChanges() {
    auto put = database_.prepare("INSERT OR REPLACE INTO defaults(key, value) VALUES(?1, ?2)");
    auto erase = database_.prepare("DELETE FROM defaults WHERE key = ?1");
    if (!put || !erase) return false;
    for (const auto& [key, value] : changes_) {
      SQLiteStatement& statement = value ? *put : *erase;
      statement.bindText(1, key);
      if (value && std::holds_alternative<double>(*value)) {
        statement.bind(2, std::get<double>(*value));
      } else if (value) {
        statement.bindText(2, std::get<std::string>(*value));
      }
      if (!statement.run()) return false;
    }
    return true;
  }

  const std::filesystem::path file_;
  std::mutex mutex_;
  SQLiteDatabase database_;
  std::int64_t version_ = -1;  // of the file when `known_` was read
  std::map<std::string, Value, std::less<>> known_;
  std::map<std::string, std::optional<Value>, std::less<>> changes_;  // without value: removed
};

UserDefaults& UserDefaults::standard() {
  static auto* instance = new UserDefaults([] {
    const auto folder = ApplicationDirectories::settingsDirectory();
    return folder.empty() ? folder : folder / "defaults.sqlite";
  }());
  return *instance;
}

UserDefaults::UserDefaults(std::filesystem::path file) {
  std::error_code error;
  // The file has to stay the same one when the program changes its working folder.
  if (auto absolute = std::filesystem::absolute(file, error); !file.empty() && !error) {
    file = std::move(absolute);
  }
  store_ = std::make_unique<Store>(std::move(file));
}

UserDefaults::~UserDefaults() { synchronize(); }

double UserDefaults::doubleForKey(std::string_view key) const {
  const auto value = store_->value(key);
  const double* number = value ? std::get_if<double>(&*value) : nullptr;
  return number != nullptr ? *number : 0.0;
}

std::optional<std::string> UserDefaults::stringForKey(std::string_view key) const {
  auto value = store_->value(key);
  std::string* text = value ? std::get_if<std::string>(&*value) : nullptr;
  return text != nullptr ? std::optional(std::move(*text)) : std::nullopt;
}

void UserDefaults::setDouble(double value, std::string_view key) { store_->change(key, value); }

void UserDefaults::setString(std::string_view value, std::string_view key) {
  store_->change(key, std::string(value));
}

void UserDefaults::removeObject(std::string_view key) { store_->change(key, std::nullopt); }

bool UserDefaults::synchronize() { return store_->synchronize(); }

}  // namespace paperloom
