#include "apps/reader/Pager.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace paperloom::reader {
namespace {

constexpr int cannotBeStarted = 126;  // and above, as shells say it

// The command for the shell; empty for none.
std::string pagerCommand() {
  const char* wish = std::getenv("PAGER");
  const std::string command = wish == nullptr ? "less -FRX" : wish;
  const char* term = std::getenv("TERM");
  const bool isDumb = term == nullptr || *term == '\0' || std::string_view(term) == "dumb";
  if (command == "cat" || (wish == nullptr && isDumb)) return "";
  return command.find_first_not_of(' ') == std::string::npos ? "" : command;
}

[[noreturn]] void becomePager(const std::string& command, int page) {
  for (const int signal : {SIGINT, SIGTERM, SIGPIPE, SIGXFSZ}) std::signal(signal, SIG_DFL);
  ::dup2(page, STDIN_FILENO);
  ::setenv("LESS", "FRX", 0);
  ::setenv("LESSCHARSET", "utf-8", 0);
  ::execl("/bin/sh", "sh", "-c", command.c_str(), nullptr);
  ::_exit(cannotBeStarted + 1);
}

// As far as the pager wants it.
void feed(int pipe, std::string_view page) {
  while (!page.empty()) {
    const ssize_t written = ::write(pipe, page.data(), page.size());
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return;
    page.remove_prefix(static_cast<std::size_t>(written));
  }
}

// Ctrl-C is the pager's while it runs.
class WithoutInterrupts {
 public:
  WithoutInterrupts() {
    struct sigaction ignore {};
    ignore.sa_handler = SIG_IGN;
    ::sigaction(SIGINT, &ignore, &before_);
  }
  ~WithoutInterrupts() { ::sigaction(SIGINT, &before_, nullptr); }
  WithoutInterrupts(const WithoutInterrupts&) = delete;
  WithoutInterrupts& operator=(const WithoutInterrupts&) = delete;

 private:
  struct sigaction before_ {};
};

}  // namespace

bool showInPager(std::string_view page) {
  const std::string command = pagerCommand();
  std::array<int, 2> ends{};
  if (command.empty() || ::pipe2(ends.data(), O_CLOEXEC) != 0) return false;
  std::fflush(stdout);
  const WithoutInterrupts ours;
  const pid_t pager = ::fork();
  if (pager == 0) becomePager(command, ends[0]);
  ::close(ends[0]);
  if (pager > 0) feed(ends[1], page);
  ::close(ends[1]);
  if (pager < 0) return false;
  int status = 0;
  while (::waitpid(pager, &status, 0) < 0 && errno == EINTR) {
  }
  return !WIFEXITED(status) || WEXITSTATUS(status) < cannotBeStarted;
}

}  // namespace paperloom::reader
