#include "apps/reader/Files.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "apps/reader/Failure.h"
#include "apps/reader/Signals.h"
#include "apps/reader/Text.h"

namespace paperloom::reader {
namespace {

// Beyond any document, and short of the memory of any machine: /dev/zero has an end, too.
constexpr std::size_t mostBytes = std::size_t{1} << 29;
constexpr off_t mostOwnBytes = off_t{1} << 20;
constexpr std::size_t longestLine = std::size_t{1} << 16;
constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";

[[noreturn]] void fail(const std::filesystem::path& path, std::string_view why) {
  throw Failure(fmt::format("cannot read {}: {}", printableText(path.string()), why));
}

// Waits until there is something to read; throws Interrupted when a signal comes first.
void awaitInput(int fd) {
  std::array<pollfd, 2> waiting = {pollfd{fd, POLLIN, 0},
                                   pollfd{Signals::fileDescriptor(), POLLIN, 0}};
  do {
    Signals::throwIfReceived();
    ::poll(waiting.data(), waiting.size(), -1);
  } while (waiting[0].revents == 0);
}

// How many bytes came; 0 at the end.
std::size_t readSome(const Descriptor& file, char* buffer, std::size_t size,
                     const std::filesystem::path& path) {
  for (;;) {
    const ssize_t got = ::read(file.get(), buffer, size);
    if (got >= 0) return static_cast<std::size_t>(got);
    if (errno != EINTR && errno != EAGAIN) failWith("read", path);
  }
}

Descriptor openInput(const std::string& path) {
  if (path == "-") return Descriptor(STDIN_FILENO);
  Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY));
  Signals::throwIfReceived();  // a pipe waits for its other end
  if (!file.isOpen()) failWith("read", path);
  return file;
}

std::filesystem::path inputName(const std::string& path) {
  return path == "-" ? "standard input" : path;
}

bool writeAll(int fd, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t written = ::write(fd, bytes.data(), bytes.size());
    if (written < 0 && errno != EINTR) return false;
    if (written > 0) bytes.remove_prefix(static_cast<std::size_t>(written));
  }
  return true;
}

}  // namespace

Descriptor::~Descriptor() {
  if (fd_ > STDERR_FILENO) ::close(fd_);
}

Descriptor::Descriptor(Descriptor&& other) noexcept : fd_(other.fd_) { other.fd_ = -1; }

void failWith(std::string_view what, const std::filesystem::path& path) {
  const int error = errno;
  throw Failure(
      fmt::format("cannot {} {}: {}", what, printableText(path.string()), std::strerror(error)));
}

std::string readAll(const Descriptor& file, const std::filesystem::path& path) {
  std::string bytes;
  std::array<char, 4096> buffer{};
  while (const std::size_t got = readSome(file, buffer.data(), buffer.size(), path)) {
    bytes.append(buffer.data(), got);
  }
  return bytes;
}

std::string readInput(const std::string& path) {
  const Descriptor file = openInput(path);
  std::string bytes;
  std::array<char, 65'536> buffer{};
  for (;;) {
    awaitInput(file.get());
    const std::size_t got = readSome(file, buffer.data(), buffer.size(), inputName(path));
    if (got == 0) return bytes;
    bytes.append(buffer.data(), got);
    if (bytes.size() > mostBytes) {
      fail(inputName(path), fmt::format("it is larger than {} MB", mostBytes >> 20));
    }
  }
}

std::string readInputLine(const std::string& path) {
  const Descriptor file = openInput(path);
  std::string line;
  for (char c = 0; c != '\n';) {
    awaitInput(file.get());
    if (readSome(file, &c, 1, inputName(path)) == 0) break;
    if (c != '\n') line += c;
    if (line.size() > longestLine) fail(inputName(path), "its first line is too long");
  }
  if (line.ends_with('\r')) line.pop_back();
  if (line.starts_with(byteOrderMark)) line.erase(0, byteOrderMark.size());
  return line;
}

Descriptor openOwnFile(const std::filesystem::path& path, int flags) {
  Descriptor file(
      ::open(path.c_str(), flags | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY, 0600));
  if (!file.isOpen() && errno == ENOENT && (flags & O_CREAT) == 0) return file;
  struct stat status {};
  // A link, a folder and a socket do not let themselves be opened.
  const bool isOther = file.isOpen() ? ::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode)
                                     : errno == ELOOP || errno == EISDIR || errno == ENXIO;
  if (isOther) fail(path, "it is not a regular file");
  if (!file.isOpen()) failWith((flags & O_ACCMODE) == O_RDONLY ? "read" : "write", path);
  if (status.st_size > mostOwnBytes) fail(path, "it is larger than 1 MB");
  return file;
}

std::optional<std::string> readOwnFile(const std::filesystem::path& path) {
  const Descriptor file = openOwnFile(path, O_RDONLY);
  if (!file.isOpen()) return {};
  return readAll(file, path);
}

void writeWholeFile(const std::filesystem::path& path, std::string_view bytes, mode_t mode,
                    Durable durable) {
  const std::filesystem::path folder = path.has_parent_path() ? path.parent_path() : ".";
  std::string name = (folder / ".paperloom-write-XXXXXX").string();
  const Descriptor file(::mkostemp(name.data(), O_CLOEXEC));
  if (!file.isOpen()) failWith("write", path);
  const bool written = ::fchmod(file.get(), mode) == 0 && writeAll(file.get(), bytes) &&
                       (durable == Durable::no || ::fsync(file.get()) == 0) &&
                       ::rename(name.c_str(), path.c_str()) == 0;
  if (!written) {
    const int error = errno;
    ::unlink(name.c_str());
    errno = error;
    failWith("write", path);
  }
  if (durable == Durable::yes) syncFolder(folder);
}

void syncFolder(const std::filesystem::path& folder) {
  const Descriptor descriptor(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (descriptor.isOpen()) ::fsync(descriptor.get());
}

}  // namespace paperloom::reader
