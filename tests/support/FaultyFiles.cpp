#include "tests/support/FaultyFiles.h"

#include <sqlite3.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <new>

namespace paperloom::test {
namespace {

sqlite3_vfs* below() {
  static sqlite3_vfs* const files = sqlite3_vfs_find("unix");
  return files;
}

// Behind it lies the file of below().
struct File {
  sqlite3_file base;
  std::string* path;
};

sqlite3_file* real(sqlite3_file* file) {
  return reinterpret_cast<sqlite3_file*>(reinterpret_cast<File*>(file) + 1);
}
const std::string& pathOf(sqlite3_file* file) { return *reinterpret_cast<File*>(file)->path; }
FaultyFiles& faults() { return FaultyFiles::shared(); }

template <auto Method, class... Arguments>
auto passOn(sqlite3_file* file, Arguments... arguments) {
  return (real(file)->pMethods->*Method)(real(file), arguments...);
}

template <auto Method, class... Arguments>
auto passOnUnblocked(sqlite3_file* file, Arguments... arguments) {
  faults().pass();
  return passOn<Method>(file, arguments...);
}

int close(sqlite3_file* file) {
  const int code = passOn<&sqlite3_io_methods::xClose>(file);
  delete reinterpret_cast<File*>(file)->path;
  return code;
}

int write(sqlite3_file* file, const void* bytes, int size, sqlite3_int64 offset) {
  faults().pass();
  if (const int code = faults().operate(true); code != SQLITE_OK) return code;
  faults().noteWrite(pathOf(file), offset, {static_cast<const char*>(bytes), std::size_t(size)});
  return passOn<&sqlite3_io_methods::xWrite>(file, bytes, size, offset);
}

int truncate(sqlite3_file* file, sqlite3_int64 size) {
  if (const int code = faults().operate(false); code != SQLITE_OK) return code;
  faults().noteTruncation(pathOf(file), size);
  return passOn<&sqlite3_io_methods::xTruncate>(file, size);
}

int sync(sqlite3_file* file, int) {
  if (const int code = faults().operate(false); code != SQLITE_OK) return code;
  faults().noteSync(pathOf(file));
  return SQLITE_OK;
}

int shmLock(sqlite3_file* file, int offset, int count, int flags) {
  faults().pass();
  if ((flags & SQLITE_SHM_LOCK) != 0 && faults().refusesLocks()) return SQLITE_BUSY;
  return passOn<&sqlite3_io_methods::xShmLock>(file, offset, count, flags);
}

void shmBarrier(sqlite3_file* file) { real(file)->pMethods->xShmBarrier(real(file)); }

constexpr sqlite3_io_methods methods{
    2,
    close,
    passOnUnblocked<&sqlite3_io_methods::xRead, void*, int, sqlite3_int64>,
    write,
    truncate,
    sync,
    passOn<&sqlite3_io_methods::xFileSize, sqlite3_int64*>,
    passOnUnblocked<&sqlite3_io_methods::xLock, int>,
    passOn<&sqlite3_io_methods::xUnlock, int>,
    passOn<&sqlite3_io_methods::xCheckReservedLock, int*>,
    passOn<&sqlite3_io_methods::xFileControl, int, void*>,
    passOn<&sqlite3_io_methods::xSectorSize>,
    passOn<&sqlite3_io_methods::xDeviceCharacteristics>,
    passOn<&sqlite3_io_methods::xShmMap, int, int, int, void volatile**>,
    shmLock,
    shmBarrier,
    passOn<&sqlite3_io_methods::xShmUnmap, int>,
    nullptr,
    nullptr,
};

int open(sqlite3_vfs*, const char* name, sqlite3_file* file, int flags, int* outFlags) {
  file->pMethods = nullptr;
  faults().pass();
  const int code = below()->xOpen(below(), name, real(file), flags, outFlags);
  if (code != SQLITE_OK) return code;
  file->pMethods = &methods;
  reinterpret_cast<File*>(file)->path = new std::string(name != nullptr ? name : "");
  return SQLITE_OK;
}

int remove(sqlite3_vfs*, const char* name, int syncFolder) {
  if (const int code = faults().operate(false); code != SQLITE_OK) return code;
  faults().noteRemoval(name);
  return below()->xDelete(below(), name, syncFolder);
}

std::string contentsOf(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

void apply(std::string& bytes, std::int64_t offset, const std::string& change) {
  const auto at = static_cast<std::size_t>(offset);
  if (change.empty()) return bytes.resize(at);
  if (bytes.size() < at + change.size()) bytes.resize(at + change.size());
  bytes.replace(at, change.size(), change);
}

// Before the first test opens a file.
[[maybe_unused]] const bool registered = (FaultyFiles::shared(), true);

}  // namespace

FaultyFiles& FaultyFiles::shared() {
  static auto* const instance = new FaultyFiles;
  return *instance;
}

FaultyFiles::FaultyFiles() {
  static sqlite3_vfs files = *below();
  files.pNext = nullptr;
  files.zName = "faulty";
  files.szOsFile += static_cast<int>(sizeof(File));
  files.xOpen = open;
  files.xDelete = remove;
  sqlite3_vfs_register(&files, 1);
}

void FaultyFiles::arm(Fault fault, int number) {
  const std::lock_guard lock(mutex_);
  fault_ = fault;
  left_ = number;
  met_ = false;
}

bool FaultyFiles::met() const {
  const std::lock_guard lock(mutex_);
  return met_;
}

void FaultyFiles::restart(std::mt19937& random) {
  const std::lock_guard lock(mutex_);
  for (auto& [path, kept] : files_) {
    for (const Change& change : kept.changes) {
      if (random() % 2 == 0) apply(kept.synced, change.offset, change.bytes);
    }
    if (kept.synced.empty() && !std::filesystem::exists(path)) continue;
    std::ofstream(path, std::ios::binary | std::ios::trunc) << kept.synced;
  }
  files_.clear();
  fault_ = Fault::none;
}

void FaultyFiles::refuseLocks(bool refuse) {
  const std::lock_guard lock(mutex_);
  refuseLocks_ = refuse;
}

void FaultyFiles::block(bool blocks) {
  const std::lock_guard lock(mutex_);
  blocks_ = blocks;
  unblocked_.notify_all();
}

int FaultyFiles::held() const {
  const std::lock_guard lock(mutex_);
  return held_;
}

void FaultyFiles::pass() {
  std::unique_lock lock(mutex_);
  held_ += blocks_ ? 1 : 0;
  unblocked_.wait(lock, [this] { return !blocks_; });
}

void FaultyFiles::watch() {
  const std::lock_guard lock(mutex_);
  files_.clear();
  bytes_ = 0;
}

std::int64_t FaultyFiles::bytesWritten() const {
  const std::lock_guard lock(mutex_);
  return bytes_;
}

int FaultyFiles::operate(bool needsRoom) {
  const std::lock_guard lock(mutex_);
  if (fault_ == Fault::none || (!met_ && --left_ > 0)) return SQLITE_OK;
  const bool first = !met_;
  met_ = true;
  if (fault_ == Fault::ioError) return first ? SQLITE_IOERR : SQLITE_OK;
  if (fault_ == Fault::diskFull) return needsRoom ? SQLITE_FULL : SQLITE_OK;
  return SQLITE_IOERR;
}

void FaultyFiles::noteWrite(const std::string& path, std::int64_t offset, std::string bytes) {
  const std::lock_guard lock(mutex_);
  bytes_ += static_cast<std::int64_t>(bytes.size());
  const auto [kept, isNew] = files_.try_emplace(path);
  if (isNew) kept->second.synced = contentsOf(path);
  kept->second.changes.push_back({offset, std::move(bytes)});
}

void FaultyFiles::noteTruncation(const std::string& path, std::int64_t size) {
  const std::lock_guard lock(mutex_);
  const auto [kept, isNew] = files_.try_emplace(path);
  if (isNew) kept->second.synced = contentsOf(path);
  kept->second.changes.push_back({size, {}});
}

void FaultyFiles::noteSync(const std::string& path) {
  const std::lock_guard lock(mutex_);
  const auto kept = files_.find(path);
  if (kept == files_.end()) return;
  for (const Change& change : kept->second.changes) {
    apply(kept->second.synced, change.offset, change.bytes);
  }
  kept->second.changes.clear();
}

void FaultyFiles::noteRemoval(const std::string& path) {
  const std::lock_guard lock(mutex_);
  files_.erase(path);
}

bool FaultyFiles::refusesLocks() const {
  const std::lock_guard lock(mutex_);
  return refuseLocks_;
}

}  // namespace paperloom::test
