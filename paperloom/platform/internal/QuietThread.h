#pragma once

#include <functional>
#include <thread>

namespace paperloom::internal {

// A thread that takes none of the signals sent to the process: they stay with the host's own
// threads, and a write to a closed socket does not end the process. Stops the program when the
// system has no thread left.
std::thread startQuietThread(std::function<void()> body);

}  // namespace paperloom::internal
