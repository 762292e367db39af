#include "paperloom/platform/internal/base/QuietThread.h"

#include <csignal>
#include <ctime>
#include <system_error>
#include <utility>

#include "paperloom/platform/FatalError.h"

namespace paperloom::internal {

std::thread startQuietThread(std::function<void()> body) {
  sigset_t quiet;
  sigset_t before;
  sigfillset(&quiet);
  // Faults of the thread itself must still reach the host's crash handler.
  for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT, SIGTRAP, SIGSYS}) {
    sigdelset(&quiet, fault);
  }
  pthread_sigmask(SIG_SETMASK, &quiet, &before);
  std::thread thread;
  try {
    thread = std::thread(std::move(body));
  } catch (const std::system_error&) {
    fatalError("no thread can be started");
  }
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  return thread;
}

namespace {

sigset_t onlyBrokenPipe() {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGPIPE);
  return set;
}

bool isBrokenPipePending() {
  sigset_t pending;
  sigpending(&pending);
  return sigismember(&pending, SIGPIPE) == 1;
}

}  // namespace

BrokenPipeShield::BrokenPipeShield() {
  const sigset_t set = onlyBrokenPipe();
  sigset_t before;
  pthread_sigmask(SIG_BLOCK, &set, &before);
  wasBlocked_ = sigismember(&before, SIGPIPE) == 1;
  wasPending_ = wasBlocked_ && isBrokenPipePending();
}

BrokenPipeShield::~BrokenPipeShield() {
  if (wasPending_) return;
  const sigset_t set = onlyBrokenPipe();
  if (isBrokenPipePending()) {
    const timespec now{};
    sigtimedwait(&set, nullptr, &now);
  }
  if (!wasBlocked_) pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
}

}  // namespace paperloom::internal
