#pragma once

#include <functional>
#include <thread>

namespace paperloom::internal {

// A thread that takes none of the signals sent to the process: they stay with the host's own
// threads, and a write to a closed socket does not end the process. Stops the program when the
// system has no thread left.
std::thread startQuietThread(std::function<void()> body);

// While it lives, a write to a closed socket on this thread raises no signal.
class BrokenPipeShield {
 public:
  BrokenPipeShield();
  ~BrokenPipeShield();
  BrokenPipeShield(const BrokenPipeShield&) = delete;
  BrokenPipeShield& operator=(const BrokenPipeShield&) = delete;

 private:
  bool wasBlocked_ = false;
  bool wasPending_ = false;
};

}  // namespace paperloom::internal
