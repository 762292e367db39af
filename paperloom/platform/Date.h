#pragma once

#include <chrono>

#include "paperloom/platform/Export.h"

namespace paperloom {

// An instant, in milliseconds since 1 January 1970 UTC: wide enough for every year a document can
// name.
using Date = std::chrono::sys_time<std::chrono::milliseconds>;

// The present, by the system's clock or by the one in its place. Any thread.
PAPERLOOM_EXPORT Date currentDate();

// Lets `clock` tell the present of the whole process, or the system's clock again with null: for
// tests that move the time. It is called on any thread. How long something takes (time limits,
// pauses) is measured by a steady clock of the system's, which this leaves alone. Any thread.
PAPERLOOM_EXPORT void setClock(Date (*clock)());

// Seconds since 1 January 1970 UTC.
inline double secondsSince1970(Date date) {
  return std::chrono::duration<double>(date.time_since_epoch()).count();
}

}  // namespace paperloom
