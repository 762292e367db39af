#pragma once

#include <sqlite3.h>

#include <atomic>
#include <chrono>
#include <thread>

namespace paperloom::bench {

// The files below SQLite, each access to which takes longer on demand: opening one, reading,
// writing, syncing, locking. install() puts it there, before the first file is opened.
class SlowDisk {
 public:
  static void install();

  // Slow while it lives.
  explicit SlowDisk(std::chrono::milliseconds delay) { delayed() = delay; }
  ~SlowDisk() { delayed() = std::chrono::milliseconds(0); }
  SlowDisk(const SlowDisk&) = delete;
  SlowDisk& operator=(const SlowDisk&) = delete;

 private:
  static std::atomic<std::chrono::milliseconds>& delayed() {
    static std::atomic<std::chrono::milliseconds> delay{};
    return delay;
  }
  static sqlite3_vfs& below() {
    static sqlite3_vfs& files = *sqlite3_vfs_find(nullptr);
    return files;
  }
  // SQLite has one table of methods for the database files, and another for all that lie beside.
  enum class Kind { database, beside };
  template <Kind kind>
  static std::atomic<const sqlite3_io_methods*>& methods() {
    static std::atomic<const sqlite3_io_methods*> known = nullptr;
    return known;
  }

  template <Kind kind, auto Method, class... Arguments>
  static int slowly(sqlite3_file* file, Arguments... arguments) {
    std::this_thread::sleep_for(delayed().load());
    return (methods<kind>().load()->*Method)(file, arguments...);
  }

  template <Kind kind>
  static const sqlite3_io_methods* slow(const sqlite3_io_methods* found) {
    methods<kind>() = found;
    static const sqlite3_io_methods table = [found] {
      using Table = sqlite3_io_methods;
      Table made = *found;
      made.xRead = slowly<kind, &Table::xRead, void*, int, sqlite3_int64>;
      made.xWrite = slowly<kind, &Table::xWrite, const void*, int, sqlite3_int64>;
      made.xSync = slowly<kind, &Table::xSync, int>;
      made.xLock = slowly<kind, &Table::xLock, int>;
      if (kind == Kind::database) {
        made.xShmLock = slowly<kind, &Table::xShmLock, int, int, int>;
      }
      return made;
    }();
    return &table;
  }
};

inline void SlowDisk::install() {
  static sqlite3_vfs files = below();
  files.zName = "slow";
  files.xOpen = [](sqlite3_vfs*, sqlite3_filename name, sqlite3_file* file, int flags, int* out) {
    std::this_thread::sleep_for(delayed().load());
    const int code = below().xOpen(&below(), name, file, flags, out);
    if (code != SQLITE_OK) return code;
    const bool isDatabase = (flags & SQLITE_OPEN_MAIN_DB) != 0;
    file->pMethods =
        isDatabase ? slow<Kind::database>(file->pMethods) : slow<Kind::beside>(file->pMethods);
    return code;
  };
  sqlite3_vfs_register(&files, 1);
}

}  // namespace paperloom::bench
