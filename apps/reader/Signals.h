#pragma once

namespace paperloom::reader {

// Thrown where the reader waits when the person has had enough (Ctrl-C) or the process is asked to
// end. Unwinding cancels the transfers.
struct Interrupted {
  int signal = 0;
};

// Turns SIGINT and SIGTERM into something to poll for. The second signal ends the process at once,
// in case the first is not heard.
class Signals {
 public:
  static void install();
  // Polls readable once a signal has come.
  static int fileDescriptor();
  // 0 when none has come.
  static int received();
  static void throwIfReceived();
};

}  // namespace paperloom::reader
