#include "paperloom/platform/internal/sqlite/SQLiteFiles.h"

#include <sqlite3.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstring>
#include <new>
#include <string>
#include <string_view>
#include <thread>
#include <utility>

namespace paperloom::internal {
namespace {

using Clock = std::chrono::steady_clock;

thread_local Clock::time_point sleepEnd = Clock::time_point::max();

// Before it gives up, SQLite sleeps for ten seconds in all over a lock that the system refuses for
// another reason than another holder. Without sleep it gives up at once.
int sleepUntilDeadline(sqlite3_vfs*, int microseconds) {
  const Clock::duration wanted = std::chrono::microseconds(microseconds);
  const auto left = sleepEnd - Clock::now();
  if (left > left.zero()) std::this_thread::sleep_for(std::min(wanted, left));
  return microseconds;
}

sqlite3_vfs* system() {
  static sqlite3_vfs* const files = sqlite3_vfs_find(nullptr);
  return files;
}

constexpr std::size_t logHeaderSize = 32;
constexpr std::size_t frameHeaderSize = 24;  // before each page of a log
// The system's files below SQLite take no more than 128 KB at once.
constexpr std::size_t mostHeld = 65536;

// Read ahead: what the second of two neighbouring pages begins with, and the most.
constexpr std::size_t leastAhead = 8192;
constexpr std::size_t mostAhead = 32768;

// Of a frame header's 24 bytes these say how large the file is after the transaction, in its last
// page, and are zero in all others.
bool endsTransaction(std::string_view frameHeader) {
  return frameHeader.substr(4, 4) != std::string_view("\0\0\0\0", 4);
}

// A file of the system's, which lies in the memory behind this object.
//
// SQLite writes to a log in three ways: its header; each page behind the one before, after a header
// of its own; and, where pages of a transaction had to be written before it ended and then changed
// once more, their headers again, each just after it has been read. Only the first two are held
// back. What is held when the lock for writing is given back belongs to a transaction that was
// rolled back: others may write there, and it is dropped.
class File : public sqlite3_file {
 public:
  explicit File(const sqlite3_io_methods& methods) : sqlite3_file{&methods} {}

  static File& of(sqlite3_file* file) { return *static_cast<File*>(file); }
  sqlite3_file* below() { return reinterpret_cast<sqlite3_file*>(this + 1); }
  const sqlite3_io_methods& methodsBelow() { return *below()->pMethods; }

  // This is the log of `main`.
  void becomeLogOf(File& main) {
    isLog_ = true;
    main_ = &main;
    main.log_ = this;
  }

  int write(std::string_view bytes, sqlite3_int64 offset) {
    if (!isLog_) return writeThrough(bytes, offset);
    const bool follows = offset == start_ + static_cast<sqlite3_int64>(held_.size());
    if (!follows || held_.size() + bytes.size() > mostHeld) {
      if (const int code = flush(); code != SQLITE_OK) return code;
    }
    const bool isFrameHeader = bytes.size() == frameHeaderSize;
    if (isFrameHeader) isLastPage_ = endsTransaction(bytes);
    if (std::exchange(wasRead_, false) || bytes.size() > mostHeld) {
      return writeThrough(bytes, offset);
    }
    if (held_.empty()) start_ = offset;
    held_ += bytes;
    if (offset == 0) isFirstHeader_ = bytes.size() == logHeaderSize && isEmpty();
    return isLastPage_ && !isFrameHeader ? flush() : SQLITE_OK;
  }

  int flush() {
    if (held_.empty()) return SQLITE_OK;
    const int code = writeThrough(held_, start_);
    held_.clear();
    return code;
  }

  int read(void* to, int size, sqlite3_int64 offset) {
    if (const int code = flush(); code != SQLITE_OK) return code;
    wasRead_ = true;
    if (!isDatabase_) return methodsBelow().xRead(below(), to, size, offset);
    if (isAhead(size, offset) || (offset == readTo_ && readAhead(size, offset))) {
      std::memcpy(to, ahead_.data() + (offset - aheadStart_), static_cast<std::size_t>(size));
      readTo_ = offset + size;
      return SQLITE_OK;
    }
    nextAhead_ = leastAhead;
    readTo_ = offset + size;
    return methodsBelow().xRead(below(), to, size, offset);
  }

  void becomeDatabase() { isDatabase_ = true; }
  void forgetAhead() {
    ahead_.clear();
    readTo_ = -1;
  }

  int sync(int flags) {
    if (std::exchange(isFirstHeader_, false) && held_.size() == logHeaderSize) return SQLITE_OK;
    if (const int code = flush(); code != SQLITE_OK) return code;
    return methodsBelow().xSync(below(), flags);
  }

  int mapIndex(int region, int size, int extend, void volatile** mapped) {
    forgetAhead();
    const int code = methodsBelow().xShmMap(below(), region, size, extend, mapped);
    if (region == 0) index_ = code == SQLITE_OK ? *mapped : nullptr;
    return code;
  }

  int unmapIndex(int remove) {
    index_ = nullptr;
    return methodsBelow().xShmUnmap(below(), remove);
  }

  int lockIndex(int offset, int count, int flags) {
    constexpr int writeLock = 0;
    const bool concernsWriting = offset == writeLock;
    const bool ends = (flags & SQLITE_SHM_UNLOCK) != 0;
    if (concernsWriting && ends) {
      writeMarks_.after = mark();
      if (log_ != nullptr) log_->held_.clear();
    }
    forgetAhead();
    const int code = methodsBelow().xShmLock(below(), offset, count, flags);
    if (concernsWriting && !ends && code == SQLITE_OK) writeMarks_.before = mark();
    return code;
  }

  SQLiteLogMark mark() const {
    return SQLiteLogMark(static_cast<const volatile std::uint32_t*>(index_));
  }
  const SQLiteWriteMarks& writeMarks() const { return writeMarks_; }

  int close() {
    const int flushed = flush();
    const int code = methodsBelow().xClose(below());
    if (main_ != nullptr) main_->log_ = nullptr;
    this->~File();
    return flushed != SQLITE_OK ? flushed : code;
  }

 private:
  bool isAhead(int size, sqlite3_int64 offset) const {
    return offset >= aheadStart_ &&
           offset + size <= aheadStart_ + static_cast<sqlite3_int64>(ahead_.size());
  }

  // False where the file ends before.
  bool readAhead(int size, sqlite3_int64 offset) {
    ahead_.resize(std::max(nextAhead_, static_cast<std::size_t>(size)));
    aheadStart_ = offset;
    nextAhead_ = std::min(2 * ahead_.size(), mostAhead);
    const int length = static_cast<int>(ahead_.size());
    const int code = methodsBelow().xRead(below(), ahead_.data(), length, offset);
    if (code != SQLITE_OK) ahead_.clear();
    return code == SQLITE_OK;
  }

  int writeThrough(std::string_view bytes, sqlite3_int64 offset) {
    forgetAhead();
    return methodsBelow().xWrite(below(), bytes.data(), static_cast<int>(bytes.size()), offset);
  }

  bool isEmpty() {
    sqlite3_int64 size = 0;
    return methodsBelow().xFileSize(below(), &size) == SQLITE_OK && size == 0;
  }

  File* log_ = nullptr;                   // of this main file, while it is open
  const volatile void* index_ = nullptr;  // the first part of the log's index, while it is mapped
  SQLiteWriteMarks writeMarks_;

  bool isDatabase_ = false;
  std::string ahead_;  // bytes of this database, from aheadStart_ on
  sqlite3_int64 aheadStart_ = 0;
  std::size_t nextAhead_ = leastAhead;
  sqlite3_int64 readTo_ = -1;  // where the last page that was read ends

  File* main_ = nullptr;  // of this log
  bool isLog_ = false;
  std::string held_;
  sqlite3_int64 start_ = 0;  // where it belongs
  bool isLastPage_ = false;  // the page that comes next ends a transaction
  bool wasRead_ = false;
  bool isFirstHeader_ = false;
};
static_assert(sizeof(File) % alignof(std::max_align_t) == 0);

template <auto Method, class... Arguments>
auto passOn(sqlite3_file* file, Arguments... arguments) {
  return (File::of(file).methodsBelow().*Method)(File::of(file).below(), arguments...);
}

template <auto Method>
int passOnLocking(sqlite3_file* file, int level) {
  File::of(file).forgetAhead();
  return passOn<Method>(file, level);
}

// The same for what has to find on disk what was written.
template <auto Method, class... Arguments>
int passOnWritten(sqlite3_file* file, Arguments... arguments) {
  File::of(file).forgetAhead();
  const int code = File::of(file).flush();
  return code != SQLITE_OK ? code : passOn<Method, Arguments...>(file, arguments...);
}

constexpr sqlite3_io_methods methods{
    2,
    [](sqlite3_file* file) { return File::of(file).close(); },
    [](sqlite3_file* file, void* to, int size, sqlite3_int64 offset) {
      return File::of(file).read(to, size, offset);
    },
    [](sqlite3_file* file, const void* from, int size, sqlite3_int64 offset) {
      return File::of(file).write({static_cast<const char*>(from), static_cast<std::size_t>(size)},
                                  offset);
    },
    passOnWritten<&sqlite3_io_methods::xTruncate, sqlite3_int64>,
    [](sqlite3_file* file, int flags) { return File::of(file).sync(flags); },
    passOnWritten<&sqlite3_io_methods::xFileSize, sqlite3_int64*>,
    passOnLocking<&sqlite3_io_methods::xLock>,
    passOnLocking<&sqlite3_io_methods::xUnlock>,
    passOn<&sqlite3_io_methods::xCheckReservedLock, int*>,
    passOn<&sqlite3_io_methods::xFileControl, int, void*>,
    passOn<&sqlite3_io_methods::xSectorSize>,
    passOn<&sqlite3_io_methods::xDeviceCharacteristics>,
    [](sqlite3_file* file, int region, int size, int extend, void volatile** mapped) {
      return File::of(file).mapIndex(region, size, extend, mapped);
    },
    [](sqlite3_file* file, int offset, int count, int flags) {
      return File::of(file).lockIndex(offset, count, flags);
    },
    passOn<&sqlite3_io_methods::xShmBarrier>,
    [](sqlite3_file* file, int remove) { return File::of(file).unmapIndex(remove); },
    nullptr,
    nullptr,
};

int open(sqlite3_vfs*, sqlite3_filename name, sqlite3_file* file, int flags, int* outFlags) {
  File& made = *new (file) File(methods);
  made.below()->pMethods = nullptr;
  const int code = system()->xOpen(system(), name, made.below(), flags, outFlags);
  if (code != SQLITE_OK) {
    made.~File();
    file->pMethods = nullptr;  // nothing to be closed
  } else if ((flags & SQLITE_OPEN_MAIN_DB) != 0) {
    made.becomeDatabase();
  } else if ((flags & SQLITE_OPEN_WAL) != 0) {
    made.becomeLogOf(File::of(sqlite3_database_file_object(name)));
  }
  return code;
}

// Null when it is not of this kind.
File* fileOf(sqlite3* database) {
  sqlite3_file* file = nullptr;
  sqlite3_file_control(database, "main", SQLITE_FCNTL_FILE_POINTER, static_cast<void*>(&file));
  return file != nullptr && file->pMethods == &methods ? &File::of(file) : nullptr;
}

}  // namespace

// Others may write it meanwhile. What is read of a commit in the middle of it is a mark that nobody
// else has.
SQLiteLogMark::SQLiteLogMark(const volatile std::uint32_t* index) : isKnown_(index != nullptr) {
  if (!isKnown_) return;
  for (std::uint32_t& word : words_) word = *index++;
  std::atomic_thread_fence(std::memory_order_acquire);
}

SQLiteLogMark logMark(sqlite3* database) {
  const File* const file = fileOf(database);
  return file != nullptr ? file->mark() : SQLiteLogMark();
}

SQLiteWriteMarks lastWriteMarks(sqlite3* database) {
  const File* const file = fileOf(database);
  return file != nullptr ? file->writeMarks() : SQLiteWriteMarks();
}

const char* sqliteFiles() {
  static sqlite3_vfs* const files = [] {
    auto* made = new sqlite3_vfs(*system());
    made->zName = "paperloom";
    made->pNext = nullptr;
    made->szOsFile += static_cast<int>(sizeof(File));
    made->xOpen = open;
    made->xSleep = sleepUntilDeadline;
    sqlite3_vfs_register(made, 0);
    return made;
  }();
  return files->zName;
}

void sleepNoLongerThan(Clock::time_point deadline) { sleepEnd = deadline; }

}  // namespace paperloom::internal
