#include "apps/reader/Password.h"

#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>

#include "apps/reader/Failure.h"
#include "apps/reader/Files.h"
#include "apps/reader/Signals.h"

namespace paperloom::reader {
namespace {

// The person's terminal without echo; as it was before when this object goes, whatever happens.
class SilentTerminal {
 public:
  SilentTerminal() : fd_(::open("/dev/tty", O_RDWR | O_CLOEXEC)) {
    if (fd_ < 0 || ::tcgetattr(fd_, &before_) != 0) {
      throw Failure("there is no terminal to ask for the password; use --password-file");
    }
    termios silent = before_;
    silent.c_lflag &= ~static_cast<tcflag_t>(ECHO);
    silent.c_lflag |= ICANON | ISIG;
    ::tcsetattr(fd_, TCSAFLUSH, &silent);
  }
  ~SilentTerminal() {
    if (fd_ < 0) return;
    ::tcsetattr(fd_, TCSAFLUSH, &before_);
    show("\n");
    ::close(fd_);
  }
  SilentTerminal(const SilentTerminal&) = delete;
  SilentTerminal& operator=(const SilentTerminal&) = delete;

  void show(std::string_view text) const {
    [[maybe_unused]] const auto written = ::write(fd_, text.data(), text.size());
  }

  std::string line() const {
    std::string text;
    for (char c = 0; c != '\n';) {
      const ssize_t got = ::read(fd_, &c, 1);
      if (got == 0) break;
      if (got < 0) {
        Signals::throwIfReceived();
        if (errno != EINTR) throw Failure("the password cannot be read from the terminal");
      } else {
        if (c != '\n') text += c;
      }
    }
    return text;
  }

 private:
  int fd_;
  termios before_{};
};

std::string prompt() {
  const SilentTerminal terminal;
  terminal.show("Password: ");
  return terminal.line();
}

}  // namespace

std::string readPassword(const std::string& file) {
  const bool ask = file.empty() && ::isatty(STDIN_FILENO) == 1;
  const std::string password = ask ? prompt() : readInputLine(file.empty() ? "-" : file);
  if (password.empty()) throw Failure("the password is empty");
  return password;
}

}  // namespace paperloom::reader
