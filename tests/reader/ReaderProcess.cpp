#include "tests/reader/ReaderProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <stdexcept>

namespace paperloom::test {
namespace {

using Clock = std::chrono::steady_clock;

struct Pipe {
  std::array<int, 2> ends{-1, -1};
  Pipe() {
    if (::pipe2(ends.data(), O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
  }
  ~Pipe() {
    close(0);
    close(1);
  }
  Pipe(const Pipe&) = delete;
  Pipe& operator=(const Pipe&) = delete;
  void close(std::size_t end) {
    if (ends[end] >= 0) ::close(ends[end]);
    ends[end] = -1;
  }
};

// Gives the other side of a new terminal.
int openTerminal(int& host) {
  host = ::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
  if (host < 0 || ::grantpt(host) != 0 || ::unlockpt(host) != 0) {
    throw std::runtime_error("no terminal");
  }
  const winsize size{40, 100, 0, 0};
  ::ioctl(host, TIOCSWINSZ, &size);
  return ::open(::ptsname(host), O_RDWR | O_NOCTTY | O_CLOEXEC);
}

[[noreturn]] void execute(const ReaderRun& run, int in, int out, int error) {
  ::setsid();
  if (run.terminal) ::ioctl(in, TIOCSCTTY, 0);
  ::dup2(in, STDIN_FILENO);
  ::dup2(out, STDOUT_FILENO);
  ::dup2(error, STDERR_FILENO);
  ::clearenv();
  ::setenv("TZ", "UTC", 1);
  ::setenv("HOME", "/nonexistent", 1);
  for (const auto& [name, value] : run.environment) ::setenv(name.c_str(), value.c_str(), 1);
  std::vector<char*> arguments = {const_cast<char*>(PAPERLOOM_READER)};
  for (const auto& argument : run.arguments)
    arguments.push_back(const_cast<char*>(argument.c_str()));
  arguments.push_back(nullptr);
  ::execv(PAPERLOOM_READER, arguments.data());
  ::_exit(127);
}

// Takes what there is; false once the other side has closed.
bool take(int fd, std::string& text) {
  std::array<char, 4096> buffer{};
  const ssize_t got = ::read(fd, buffer.data(), buffer.size());
  if (got > 0) text.append(buffer.data(), static_cast<std::size_t>(got));
  return got > 0;
}

void type(int fd, const std::string& text) {
  [[maybe_unused]] const auto written = ::write(fd, text.data(), text.size());
}

void collect(const ReaderRun& run, pid_t child, int out, int error, ReaderOutcome& outcome) {
  const auto deadline = Clock::now() + std::chrono::minutes(1);
  bool interrupted = !run.interruptWhen;
  bool typed = !run.terminal;
  std::array<pollfd, 2> open = {pollfd{out, POLLIN, 0}, pollfd{error, POLLIN, 0}};
  while (open[0].fd >= 0 || open[1].fd >= 0) {
    ::poll(open.data(), open.size(), 20);
    if (open[0].revents != 0 && !take(out, outcome.out)) open[0].fd = -1;
    if (open[1].revents != 0 && !take(error, outcome.error)) open[1].fd = -1;
    if (!typed && outcome.out.find(run.typeAfter) != std::string::npos) {
      type(out, run.input);
      typed = true;
    }
    if (!interrupted && run.interruptWhen()) {
      ::kill(child, SIGINT);
      interrupted = true;
    }
    if (Clock::now() > deadline) {
      ::kill(child, SIGKILL);
      break;
    }
  }
}

}  // namespace

ReaderOutcome runReader(const ReaderRun& run) {
  Pipe in;
  Pipe out;
  Pipe error;
  int host = -1;
  const int terminal = run.terminal ? openTerminal(host) : -1;
  const int file =
      run.outputFile.empty() ? -1 : ::open(run.outputFile.c_str(), O_WRONLY | O_CLOEXEC);
  std::signal(SIGPIPE, SIG_IGN);
  const pid_t child = ::fork();
  if (child == 0) {
    execute(run, run.terminal ? terminal : in.ends[0],
            run.terminal ? terminal
            : file >= 0  ? file
                         : out.ends[1],
            error.ends[1]);
  }
  for (const int fd : {terminal, file}) {
    if (fd >= 0) ::close(fd);
  }
  out.close(1);
  error.close(1);
  in.close(0);
  if (!run.terminal) type(in.ends[1], run.input);
  in.close(1);

  ReaderOutcome outcome;
  collect(run, child, run.terminal ? host : out.ends[0], error.ends[0], outcome);
  int status = 0;
  ::waitpid(child, &status, 0);
  if (host >= 0) ::close(host);
  outcome.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  return outcome;
}

ReaderOutcome Reader::run(std::vector<std::string> arguments, std::string input) const {
  ReaderRun run;
  run.arguments = std::move(arguments);
  run.input = std::move(input);
  return this->run(std::move(run));
}

ReaderOutcome Reader::run(ReaderRun run) const {
  std::vector<std::string> all = {"--data-dir", folder().string()};
  all.insert(all.end(), always_.begin(), always_.end());
  all.insert(all.end(), run.arguments.begin(), run.arguments.end());
  run.arguments = std::move(all);
  return runReader(run);
}

}  // namespace paperloom::test
