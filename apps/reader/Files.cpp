#include "apps/reader/Files.h"

#include <fcntl.h>
#include <fmt/format.h>
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

class Descriptor {
 public:
  explicit Descriptor(int fd) : fd_(fd) {}
  ~Descriptor() {
    if (fd_ > STDERR_FILENO) ::close(fd_);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  int get() const { return fd_; }

 private:
  int fd_;
};

[[noreturn]] void failWith(std::string_view what, const std::filesystem::path& path) {
  const int error = errno;
  throw Failure(
      fmt::format("cannot {} {}: {}", what, printableLine(path.string()), std::strerror(error)));
}

std::string readAll(const Descriptor& file, const std::filesystem::path& path) {
  std::string bytes;
  std::array<char, 65'536> buffer{};
  for (;;) {
    const ssize_t got = ::read(file.get(), buffer.data(), buffer.size());
    if (got == 0) return bytes;
    if (got < 0) {
      Signals::throwIfReceived();
      if (errno == EINTR) continue;
      failWith("read", path);
    }
    bytes.append(buffer.data(), static_cast<std::size_t>(got));
    if (bytes.size() > mostBytes) {
      throw Failure(fmt::format("cannot read {}: it is larger than {} MB",
                                printableLine(path.string()), mostBytes >> 20));
    }
  }
}

bool writeAll(int fd, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t written = ::write(fd, bytes.data(), bytes.size());
    if (written < 0 && errno != EINTR) return false;
    if (written > 0) bytes.remove_prefix(static_cast<std::size_t>(written));
  }
  return true;
}

void syncFolder(const std::filesystem::path& folder) {
  const Descriptor descriptor(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (descriptor.get() >= 0) ::fsync(descriptor.get());
}

}  // namespace

std::string readInput(const std::string& path) {
  if (path == "-") return readAll(Descriptor(STDIN_FILENO), "standard input");
  auto bytes = readFileIfPresent(path);
  if (!bytes) {
    errno = ENOENT;
    failWith("read", path);
  }
  return std::move(*bytes);
}

std::optional<std::string> readFileIfPresent(const std::filesystem::path& path) {
  const Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (file.get() < 0) {
    if (errno == ENOENT) return {};
    failWith("read", path);
  }
  return readAll(file, path);
}

void writeWholeFile(const std::filesystem::path& path, std::string_view bytes, mode_t mode,
                    Durable durable) {
  const std::filesystem::path folder = path.has_parent_path() ? path.parent_path() : ".";
  std::string name = (folder / ".paperloom-XXXXXX").string();
  const Descriptor file(::mkostemp(name.data(), O_CLOEXEC));
  if (file.get() < 0) failWith("write", path);
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

}  // namespace paperloom::reader
