#include "tests/reader/ReaderProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <set>
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

[[noreturn]] void executeReader(const std::vector<std::string>& arguments) {
  std::vector<char*> all = {const_cast<char*>(PAPERLOOM_READER)};
  for (const auto& argument : arguments) all.push_back(const_cast<char*>(argument.c_str()));
  all.push_back(nullptr);
  ::execv(PAPERLOOM_READER, all.data());
  ::_exit(127);
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
  ::setenv("PAGER", "cat", 1);
  for (const auto& [name, value] : run.environment) ::setenv(name.c_str(), value.c_str(), 1);
  for (const int fd : run.closed) ::close(fd);
  if (run.largestFile != RLIM_INFINITY) {
    const rlimit limit{run.largestFile, run.largestFile};
    ::setrlimit(RLIMIT_FSIZE, &limit);
  }
  executeReader(run.arguments);
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

// Whether the system call that the stopped thread is about to make changes or opens a file whose
// path lies below `folder` and has `part` in its name.
bool touches(pid_t thread, const std::filesystem::path& folder, const std::string& part) {
  __ptrace_syscall_info call{};
  if (::ptrace(PTRACE_GET_SYSCALL_INFO, thread, sizeof call, &call) <= 0 ||
      call.op != PTRACE_SYSCALL_INFO_ENTRY) {
    return false;
  }
  static const std::set<std::uint64_t> byDescriptor = {
      SYS_write, SYS_pwrite64, SYS_ftruncate, SYS_fsync, SYS_fdatasync, SYS_fallocate, SYS_fchmod};
  static const std::set<std::uint64_t> byPath = {SYS_openat, SYS_unlinkat, SYS_linkat,
                                                 SYS_renameat2};
  static const std::set<std::uint64_t> byFirstPath = {
#ifdef SYS_rename
      SYS_open,
      SYS_unlink,
      SYS_link,
      SYS_rename,
#endif
  };
  const std::uint64_t number = call.entry.nr;
  std::string path;
  if (byDescriptor.contains(number)) {
    std::error_code ignored;
    path = std::filesystem::read_symlink(
        "/proc/" + std::to_string(thread) + "/fd/" + std::to_string(call.entry.args[0]), ignored);
  } else if (byPath.contains(number) || byFirstPath.contains(number)) {
    path.resize(1024);
    const std::uint64_t address = call.entry.args[byPath.contains(number) ? 1 : 0];
    const iovec local{path.data(), path.size()};
    const iovec remote{reinterpret_cast<void*>(address), path.size()};
    if (::process_vm_readv(thread, &local, 1, &remote, 1, 0) <= 0) return false;
    path = path.c_str();
  }
  return path.starts_with(folder.string()) && path.rfind(part) > folder.string().size() &&
         path.rfind(part) != std::string::npos;
}

}  // namespace

bool runReaderUntil(const std::vector<std::string>& arguments, int operation,
                    const std::filesystem::path& folder, const std::string& part) {
  const pid_t child = ::fork();
  if (child == 0) {
    const int nothing = ::open("/dev/null", O_RDWR);
    for (const int fd : {0, 1, 2}) ::dup2(nothing, fd);
    ::setenv("ASAN_OPTIONS", "detect_leaks=0", 1);  // it cannot look for leaks while it is traced
    ::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
    ::raise(SIGSTOP);
    executeReader(arguments);
  }
  int status = 0;
  ::waitpid(child, &status, 0);
  ::ptrace(PTRACE_SETOPTIONS, child, nullptr,
           PTRACE_O_TRACESYSGOOD | PTRACE_O_TRACECLONE | PTRACE_O_EXITKILL);
  ::ptrace(PTRACE_SYSCALL, child, nullptr, nullptr);
  bool killed = false;
  for (pid_t thread = 0; (thread = ::waitpid(-1, &status, __WALL)) > 0;) {
    if (!WIFSTOPPED(status)) {
      if (thread == child) break;
      continue;
    }
    const int signal = WSTOPSIG(status);
    const bool isCall = signal == (SIGTRAP | 0x80);
    if (isCall && touches(thread, folder, part) && operation-- == 0) {
      ::kill(child, SIGKILL);
      killed = true;
      continue;
    }
    const bool isOurs = isCall || signal == SIGTRAP || signal == SIGSTOP;
    ::ptrace(PTRACE_SYSCALL, thread, nullptr, isOurs ? 0 : signal);
  }
  return killed;
}

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
            run.errorToTerminal ? terminal : error.ends[1]);
  }
  for (const int fd : {terminal, file}) {
    if (fd >= 0) ::close(fd);
  }
  out.close(1);
  error.close(1);
  in.close(0);
  if (!run.terminal) type(in.ends[1], run.input);
  if (!run.inputStaysOpen) in.close(1);

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

std::vector<std::string> Reader::withCommon(std::vector<std::string> arguments) const {
  std::vector<std::string> all = {"--data-dir", folder().string()};
  all.insert(all.end(), always_.begin(), always_.end());
  all.insert(all.end(), arguments.begin(), arguments.end());
  return all;
}

ReaderOutcome Reader::run(ReaderRun run) const {
  run.arguments = withCommon(std::move(run.arguments));
  return runReader(run);
}

bool Reader::runUntil(std::vector<std::string> arguments, int operation,
                      const std::string& part) const {
  return runReaderUntil(withCommon(std::move(arguments)), operation, folder(), part);
}

}  // namespace paperloom::test
