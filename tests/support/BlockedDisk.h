#pragma once

#include <sqlite3.h>

#include <atomic>
#include <condition_variable>
#include <mutex>

namespace paperloom::test {

// Makes SQLite wait for this test, in this process: while it is closed, every file that is opened
// and every page, lock or change of a file opened through it has to wait. install() puts it below
// SQLite, before the first file is opened; it lets everything pass while no object of it lives.
class BlockedDisk {
 public:
  static bool install();

  BlockedDisk() { set(true); }
  ~BlockedDisk() { open(); }
  BlockedDisk(const BlockedDisk&) = delete;
  BlockedDisk& operator=(const BlockedDisk&) = delete;

  void open() { set(false); }
  // How many accesses have had to wait so far.
  static int held() { return gate().held; }

 private:
  struct Gate {
    std::mutex mutex;
    std::condition_variable opened;
    bool closed = false;
    std::atomic<int> held = 0;
    sqlite3_vfs* vfs = nullptr;
    std::atomic<const sqlite3_io_methods*> methods = nullptr;
  };
  static Gate& gate() {
    static auto* const one = new Gate;
    return *one;
  }
  static void set(bool closed) {
    const std::lock_guard lock(gate().mutex);
    gate().closed = closed;
    gate().opened.notify_all();
  }
  static void pass() {
    std::unique_lock lock(gate().mutex);
    if (gate().closed) ++gate().held;
    gate().opened.wait(lock, [] { return !gate().closed; });
  }

  static const sqlite3_io_methods* wrapped(const sqlite3_io_methods* methods) {
    static sqlite3_io_methods blocking = *methods;
    const sqlite3_io_methods* none = nullptr;
    if (gate().methods.compare_exchange_strong(none, methods)) {
      blocking.xRead = [](sqlite3_file* file, void* to, int size, sqlite3_int64 offset) {
        pass();
        return gate().methods.load()->xRead(file, to, size, offset);
      };
      blocking.xWrite = [](sqlite3_file* file, const void* from, int size, sqlite3_int64 offset) {
        pass();
        return gate().methods.load()->xWrite(file, from, size, offset);
      };
      blocking.xLock = [](sqlite3_file* file, int kind) {
        pass();
        return gate().methods.load()->xLock(file, kind);
      };
      blocking.xShmLock = [](sqlite3_file* file, int offset, int count, int flags) {
        pass();
        return gate().methods.load()->xShmLock(file, offset, count, flags);
      };
    }
    return gate().methods == methods ? &blocking : methods;
  }
};

inline bool BlockedDisk::install() {
  gate().vfs = sqlite3_vfs_find(nullptr);
  static sqlite3_vfs vfs = *gate().vfs;
  vfs.zName = "blocked";
  vfs.xOpen = [](sqlite3_vfs*, sqlite3_filename name, sqlite3_file* file, int flags, int* out) {
    pass();
    const int code = gate().vfs->xOpen(gate().vfs, name, file, flags, out);
    if (code == SQLITE_OK) file->pMethods = wrapped(file->pMethods);
    return code;
  };
  return sqlite3_vfs_register(&vfs, 1) == SQLITE_OK;
}

}  // namespace paperloom::test
