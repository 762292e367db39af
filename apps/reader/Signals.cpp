#include "apps/reader/Signals.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>

namespace paperloom::reader {
namespace {

// Written by the handler, so only what is safe there.
volatile std::sig_atomic_t receivedSignal = 0;
std::array<int, 2> selfPipe = {-1, -1};

void onSignal(int signal) {
  const int error = errno;
  receivedSignal = signal;
  const char byte = 0;
  [[maybe_unused]] const auto written = ::write(selfPipe[1], &byte, 1);
  errno = error;
}

}  // namespace

void Signals::install() {
  if (::pipe2(selfPipe.data(), O_CLOEXEC | O_NONBLOCK) != 0) return;
  struct sigaction action {};
  action.sa_handler = onSignal;
  action.sa_flags = static_cast<int>(SA_RESETHAND);
  ::sigemptyset(&action.sa_mask);
  ::sigaction(SIGINT, &action, nullptr);
  ::sigaction(SIGTERM, &action, nullptr);
  // Output that nobody reads any more, or that grows too large, is an error of the write, not the
  // end of the process.
  std::signal(SIGPIPE, SIG_IGN);
  std::signal(SIGXFSZ, SIG_IGN);
}

int Signals::fileDescriptor() { return selfPipe[0]; }

int Signals::received() { return receivedSignal; }

void Signals::throwIfReceived() {
  if (receivedSignal != 0) throw Interrupted{receivedSignal};
}

}  // namespace paperloom::reader
