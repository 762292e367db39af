#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <utility>

#include "tests/support/Soak.h"

namespace paperloom::test {

// A process of its own that does `work` and ends without clearing up. It does not outlive this, and
// a hang in it ends by SIGALRM.
class ChildProcess {
 public:
  template <class Work>
  explicit ChildProcess(Work work) : id_(::fork()) {
    if (id_ != 0) return;
    ::alarm(static_cast<unsigned>(soakTimes(100)));
    work();
    ::_exit(testing::Test::HasFailure() ? 1 : 0);
  }
  ~ChildProcess() { kill(); }
  ChildProcess(ChildProcess&& other) noexcept : id_(std::exchange(other.id_, -1)) {}
  ChildProcess(const ChildProcess&) = delete;

  // The signal that ended it; otherwise 256 if an expectation failed in it, and 0 if none did.
  int wait() {
    int status = -1;
    if (id_ > 0) ::waitpid(std::exchange(id_, -1), &status, 0);
    return status;
  }
  void kill() {
    if (id_ > 0) ::kill(id_, SIGKILL);
    wait();
  }

 private:
  pid_t id_;
};

}  // namespace paperloom::test
