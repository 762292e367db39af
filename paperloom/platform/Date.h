#pragma once

#include <chrono>

namespace paperloom {

// An instant, in milliseconds since 1 January 1970 UTC: wide enough for every year a document can
// name.
using Date = std::chrono::sys_time<std::chrono::milliseconds>;

inline Date currentDate() {
  return std::chrono::floor<std::chrono::milliseconds>(std::chrono::system_clock::now());
}

// Seconds since 1 January 1970 UTC.
inline double secondsSince1970(Date date) {
  return std::chrono::duration<double>(date.time_since_epoch()).count();
}

}  // namespace paperloom
