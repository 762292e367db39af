#pragma once

#include <sched.h>

namespace paperloom::bench {

// The server has the first core to itself and its clients have the others, as if it were another
// machine. Where the scheduler is free to put both on one core, a round trip costs half as much as
// across two, and chance decides which of two clients is the faster.

inline void stayOnFirstCore() {
  cpu_set_t first;
  CPU_ZERO(&first);
  CPU_SET(0, &first);
  sched_setaffinity(0, sizeof first, &first);  // what fails leaves the scheduler free
}

// For the calling thread and those that it starts; before the first of them.
inline void leaveFirstCoreToServers() {
  cpu_set_t others;
  if (sched_getaffinity(0, sizeof others, &others) != 0) return;
  CPU_CLR(0, &others);
  if (CPU_COUNT(&others) > 0) sched_setaffinity(0, sizeof others, &others);
}

}  // namespace paperloom::bench
