#include "apps/reader/FileLock.h"

#include <fcntl.h>
#include <fmt/format.h>

#include <cerrno>
#include <thread>

#include "apps/reader/Failure.h"
#include "apps/reader/Signals.h"
#include "apps/reader/Text.h"

namespace paperloom::reader {
namespace {

constexpr std::chrono::milliseconds betweenTries{5};

}  // namespace

FileLock::FileLock(const std::filesystem::path& file, off_t byte, Kind kind,
                   std::chrono::milliseconds patience, Wait wait)
    : file_(openOwnFile(file, kind == Kind::shared ? O_RDONLY : O_RDWR | O_CREAT)) {
  if (!file_.isOpen()) return;
  struct flock lock {};
  lock.l_type = kind == Kind::shared ? F_RDLCK : F_WRLCK;
  lock.l_whence = SEEK_SET;
  lock.l_start = byte;
  lock.l_len = 1;
  const auto deadline = std::chrono::steady_clock::now() + patience;
  while (::fcntl(file_.get(), F_OFD_SETLK, &lock) != 0) {
    if (errno != EAGAIN && errno != EACCES && errno != EINTR) failWith("lock", file);
    if (std::chrono::steady_clock::now() >= deadline) {
      throw Failure(fmt::format("another paperloom holds {}; try again when it has ended",
                                printableText(file.string())));
    }
    if (wait == Wait::untilSignal) Signals::throwIfReceived();
    std::this_thread::sleep_for(betweenTries);
  }
}

}  // namespace paperloom::reader
