#include "apps/reader/RecordFile.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "apps/reader/Failure.h"
#include "apps/reader/Files.h"
#include "apps/reader/Text.h"

namespace paperloom::reader {
namespace {

// Tokens that come are about as long as those before them.
constexpr std::size_t spareRoom = 16'384;

// Where the last text of the file ends: room that was reserved is filled with line breaks where the
// file system cannot reserve it otherwise.
std::size_t endOfTexts(std::string_view content) { return content.find_last_not_of('\n') + 1; }

Descriptor openForWriting(const std::filesystem::path& path, int flags) {
  Descriptor file = openOwnFile(path, O_RDWR | flags);
  if (!file.isOpen()) failWith("write", path);
  struct stat status {};
  if (::fstat(file.get(), &status) != 0) failWith("write", path);
  if (status.st_uid != ::geteuid() || status.st_nlink != 1) {
    throw Failure(
        fmt::format("cannot write {}: it is not this user's alone", printableText(path.string())));
  }
  return file;
}

bool writeAt(const Descriptor& file, std::string_view bytes, std::size_t offset) {
  while (!bytes.empty()) {
    const ssize_t written =
        ::pwrite(file.get(), bytes.data(), bytes.size(), static_cast<off_t>(offset));
    if (written < 0 && errno != EINTR) return false;
    if (written <= 0) continue;
    bytes.remove_prefix(static_cast<std::size_t>(written));
    offset += static_cast<std::size_t>(written);
  }
  return true;
}

bool cut(const Descriptor& file, std::size_t size) {
  return ::ftruncate(file.get(), static_cast<off_t>(size)) == 0;
}

// The text for the first time: there is nothing that could be lost.
bool writeFirst(const Descriptor& file, std::string_view text) {
  return writeAt(file, text, 0) && cut(file, text.size()) && ::fsync(file.get()) == 0;
}

bool append(const Descriptor& file, std::string_view text, std::size_t end) {
  // The head gets room for a copy.
  const std::size_t start = std::max(end, text.size());
  std::string addition(start - end + 2, '\n');
  addition += text;
  if (writeAt(file, addition, end) && ::fsync(file.get()) == 0) return true;
  const int error = errno;
  cut(file, end);
  errno = error;
  return false;
}

// May end half-way: the text stands at the end already.
void moveToHead(const Descriptor& file, std::string_view text) {
  if (writeAt(file, text, 0) && ::fsync(file.get()) == 0 && cut(file, text.size())) {
    ::fsync(file.get());
  }
}

}  // namespace

std::vector<std::string> RecordFile::texts() const {
  const std::string content = path_.empty() ? memory_ : readOwnFile(path_).value_or("");
  std::vector<std::string> texts;
  std::string_view rest = content;
  while ((rest = rest.substr(0, endOfTexts(rest))).size() > 0) {
    const auto gap = rest.rfind("\n\n");
    const std::size_t start = gap == std::string_view::npos ? 0 : gap + 2;
    texts.emplace_back(rest.substr(start));
    rest = rest.substr(0, start);
  }
  return texts;
}

void RecordFile::write(std::string_view text) {
  if (path_.empty()) {
    memory_ = text;
    return;
  }
  const Descriptor file = openForWriting(path_, O_CREAT);
  const std::size_t end = endOfTexts(readAll(file, path_));
  const bool written = ::fchmod(file.get(), 0600) == 0 &&
                       (end == 0 ? writeFirst(file, text) : append(file, text, end));
  if (!written) failWith("write", path_);
  if (end == 0) {
    syncFolder(path_.parent_path());
  } else {
    moveToHead(file, text);
  }
}

void RecordFile::reserve() {
  if (path_.empty()) return;
  const Descriptor file = openForWriting(path_, 0);
  const std::size_t size = readAll(file, path_).size();
  const std::size_t room = 2 * size + spareRoom;
  rlimit limit{};
  if (::getrlimit(RLIMIT_FSIZE, &limit) == 0 && limit.rlim_cur < size + room) {
    errno = EFBIG;  // the room is not counted before it is written to
    failWith("write", path_);
  }
  if (::fallocate(file.get(), FALLOC_FL_KEEP_SIZE, static_cast<off_t>(size),
                  static_cast<off_t>(room)) == 0) {
    return;
  }
  if ((errno == EOPNOTSUPP || errno == ENOSYS) && writeAt(file, std::string(room, '\n'), size) &&
      ::fsync(file.get()) == 0) {
    return;
  }
  const int error = errno;
  cut(file, size);
  errno = error;
  failWith("write", path_);
}

void RecordFile::release() {
  if (path_.empty()) return;
  const Descriptor file = openOwnFile(path_, O_RDWR);
  if (!file.isOpen()) return;
  const std::string content = readAll(file, path_);
  cut(file, std::min(content.size(), endOfTexts(content) + 1));
}

bool RecordFile::remove() {
  if (path_.empty()) return !std::exchange(memory_, "").empty();
  struct stat status {};
  if (::lstat(path_.c_str(), &status) != 0) {
    if (errno == ENOENT) return false;
    failWith("remove", path_);
  }
  if (!S_ISREG(status.st_mode) && !S_ISLNK(status.st_mode)) {
    throw Failure(
        fmt::format("cannot remove {}: it is not a regular file", printableText(path_.string())));
  }
  if (::unlink(path_.c_str()) != 0) failWith("remove", path_);
  syncFolder(path_.parent_path());
  return true;
}

}  // namespace paperloom::reader
