#pragma once

#include <chrono>
#include <string>
#include <string_view>

namespace paperloom::reader {

// The one line on standard error, when that is a terminal, that says what is waited for. It goes
// before anything else is written. For the main thread.
class StatusLine {
 public:
  static void show(std::string_view text);
  static void erase();
};

// A wait, shown once it has taken half a second: for whom, and since when.
class Waiting {
 public:
  // An empty name shows nothing.
  explicit Waiting(std::string whom);
  ~Waiting();
  Waiting(const Waiting&) = delete;
  Waiting& operator=(const Waiting&) = delete;

  // Milliseconds until tick() has something to do; -1 for never.
  int untilTick() const;
  void tick();
  // Something has come; the wait for the next begins.
  void restart();

 private:
  using Clock = std::chrono::steady_clock;

  std::string whom_;
  Clock::time_point begin_;
  Clock::time_point next_;
  std::string since_;
};

}  // namespace paperloom::reader
