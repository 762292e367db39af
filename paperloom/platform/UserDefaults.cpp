#include "paperloom/platform/UserDefaults.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstring>
#include <map>
#include <thread>
#include <utility>
#include <variant>

#include "paperloom/platform/ApplicationDirectories.h"
#include "paperloom/platform/Mutex.h"
#include "paperloom/platform/internal/base/Checksum.h"
#include "paperloom/platform/internal/base/PrivateFolders.h"
#include "paperloom/platform/internal/base/Try.h"
#include "paperloom/platform/internal/sqlite/SQLite.h"
#include "paperloom/platform/internal/sqlite/SQLiteCall.h"
#include "paperloom/platform/internal/sqlite/SQLiteFormat.h"

namespace paperloom {
namespace {

using internal::Examined;
using internal::SQLiteCall;
using internal::SQLiteDatabase;
using internal::SQLiteError;
using internal::SQLiteResult;
using internal::SQLiteStatus;
using internal::SQLiteText;
using Value = std::variant<double, std::string>;

// For other processes, which hold the file only as long as a write takes.
constexpr std::chrono::seconds lockWait{2};

SQLiteDatabase::Deadline inAWhile() { return std::chrono::steady_clock::now() + lockWait; }

// Lets one process or thread at a time look whether the file is damaged and set it aside.
class OpeningLock {
 public:
  explicit OpeningLock(const std::filesystem::path& file) {
    const std::string name = file.string() + ".lock";
    descriptor_ = ::open(name.c_str(), O_CREAT | O_RDWR | O_CLOEXEC | O_NOFOLLOW, 0600);
    const auto end = inAWhile();
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

constexpr std::array<internal::SchemaObject, 1> schema{{
    {"table", "defaults", "defaults",
     "CREATE TABLE defaults(key TEXT PRIMARY KEY NOT NULL, value, sum INTEGER NOT NULL) "
     "WITHOUT ROWID"},
}};
constexpr internal::SQLiteFormat format{.application = 0x504C4453, .version = 2, .schema = schema};

// Whether the file holds what it claims to hold.
SQLiteResult<Examined> examineWhole(SQLiteDatabase& database) {
  const auto examined = internal::examine(database, format);
  if (!examined || *examined != Examined::ours) return examined;
  auto check = database.prepare("PRAGMA integrity_check(1)");
  const auto row = check ? check->step() : tl::unexpected(SQLiteError(check.error()));
  if (row) return *row && check->text(0) == "ok" ? Examined::ours : Examined::wrong;
  if (row.error().isDamage()) return Examined::wrong;
  return tl::unexpected(row.error());
}

// Covers the kind of the value and where the key ends, so that no changed byte goes unnoticed.
std::int64_t checksumOf(std::string_view key, const Value& value) {
  std::string bytes(key);
  if (const double* number = std::get_if<double>(&value)) {
    std::array<char, sizeof *number> raw{};
    std::memcpy(raw.data(), number, raw.size());
    bytes.append(raw.data(), raw.size());
  } else {
    bytes += std::get<std::string>(value);
  }
  const std::uint64_t kind = value.index();
  return static_cast<std::int64_t>(internal::checksum(bytes, key.size() * 2 + kind));
}

}  // namespace

class UserDefaults::Store {
 public:
  explicit Store(std::filesystem::path file) : file_(std::move(file)) {}

  std::optional<Value> value(std::string_view key) {
    const MutexLock lock(mutex_);
    if (const auto changed = changes_.find(key); changed != changes_.end()) return changed->second;
    // Reading alone makes no file.
    std::error_code error;
    if (database_ || std::filesystem::exists(file_, error)) refresh();
    const auto known = known_.find(key);
    return known != known_.end() ? std::optional(known->second) : std::nullopt;
  }

  void change(std::string_view key, std::optional<Value> value) {
    const MutexLock lock(mutex_);
    changes_.insert_or_assign(std::string(key), std::move(value));
  }

  bool synchronize() {
    const MutexLock lock(mutex_);
    if (changes_.empty()) return true;
    if (write()) return true;
    // What was damaged is found and set aside when the file is opened again.
    close();
    return write();
  }

 private:
  bool open() PAPERLOOM_REQUIRES(mutex_) {
    if (database_) {
      database_.waitForLocksUntil(inAWhile());
      return true;
    }
    if (file_.empty() || !internal::createPrivateFolders(file_.parent_path())) return false;
    const OpeningLock lock(file_);
    if (!lock.held()) return false;
    auto opened = SQLiteDatabase::open(file_, inAWhile());
    auto examined = opened ? examineWhole(*opened) : tl::unexpected(SQLiteError(opened.error()));
    if (!examined) return false;
    if (*examined == Examined::wrong) {
      // For whoever wants to look; the file itself is emptied in place, since others may have it
      // open.
      opened->copyFile(file_.string() + ".damaged");
      *opened = {};
      opened = SQLiteDatabase::open(file_, inAWhile());
      if (!opened || !opened->resetFile()) return false;
      examined = Examined::empty;
    }
    // EXTRA also brings the removal of the rollback journal to the disk: without that, a power cut
    // right after a commit could bring the old values back.
    if (!opened->execute("PRAGMA journal_mode=DELETE; PRAGMA synchronous=EXTRA")) return false;
    if (*examined == Examined::empty && !internal::establish(*opened, format, "")) return false;
    database_ = std::move(*opened);
    version_ = -1;
    return true;
  }

  void close() PAPERLOOM_REQUIRES(mutex_) { database_ = {}; }

  void refresh() PAPERLOOM_REQUIRES(mutex_) {
    if (load()) return;
    close();
    load();
  }

  // What was read last stays when the file cannot be read.
  bool load() PAPERLOOM_REQUIRES(mutex_) {
    if (!open()) return false;
    // Another number than before when another connection has committed something.
    const auto version = database_.integer("PRAGMA data_version");
    if (!version) return false;
    if (*version == version_) return true;
    auto select = database_.prepare("SELECT key, value, sum FROM defaults");
    if (!select) return false;
    std::map<std::string, Value, std::less<>> values;
    for (;;) {
      const auto row = select->step();
      if (!row) return false;
      if (!*row) break;
      const auto key = select->text(0);
      std::optional<Value> value;
      if (const auto number = select->real(1)) value = *number;
      if (const auto text = select->text(1)) value = std::string(*text);
      // A value that is not what was stored is none.
      if (!key || !value || select->integer(2) != checksumOf(*key, *value)) continue;
      values.emplace(*key, std::move(*value));
    }
    known_ = std::move(values);
    version_ = *version;
    return true;
  }

  bool write() PAPERLOOM_REQUIRES(mutex_) {
    // Everything that has changed or nothing: a reader never sees half of it.
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

  SQLiteStatus writeChanges() PAPERLOOM_REQUIRES(mutex_) {
    SQLiteCall<void(SQLiteText, double, std::int64_t)> putNumber(
        database_, "INSERT OR REPLACE INTO defaults VALUES(?1, ?2, ?3)");
    SQLiteCall<void(SQLiteText, SQLiteText, std::int64_t)> putText(
        database_, "INSERT OR REPLACE INTO defaults VALUES(?1, ?2, ?3)");
    SQLiteCall<void(SQLiteText)> erase(database_, "DELETE FROM defaults WHERE key = ?1");
    for (const auto& [key, value] : changes_) {
      if (!value) {
        TRY(erase(SQLiteText{key}));
      } else if (const double* number = std::get_if<double>(&*value)) {
        TRY(putNumber(SQLiteText{key}, *number, checksumOf(key, *value)));
      } else {
        const SQLiteText text{std::get<std::string>(*value)};
        TRY(putText(SQLiteText{key}, text, checksumOf(key, *value)));
      }
    }
    return {};
  }

  const std::filesystem::path file_;
  Mutex mutex_;
  SQLiteDatabase database_ PAPERLOOM_GUARDED_BY(mutex_);
  std::int64_t version_ PAPERLOOM_GUARDED_BY(mutex_) = -1;  // of the file when `known_` was read
  std::map<std::string, Value, std::less<>> known_ PAPERLOOM_GUARDED_BY(mutex_);
  // Without a value: removed.
  std::map<std::string, std::optional<Value>, std::less<>> changes_ PAPERLOOM_GUARDED_BY(mutex_);
};

// Never destroyed, for a callback may come while the program ends.
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
