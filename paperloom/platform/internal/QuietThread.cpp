#include "paperloom/platform/internal/QuietThread.h"

#include <csignal>
#include <system_error>
#include <utility>

#include "paperloom/platform/internal/FatalError.h"

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

}  // namespace paperloom::internal
