#pragma once

#include <cstddef>
#include <string_view>

#include "apps/reader/Output.h"

namespace paperloom::reader {

// How far long work has come: a bar that redraws itself on a terminal, one line per item elsewhere.
class Progress {
 public:
  explicit Progress(Output& output) : output_(output) {}
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  void setTotal(std::size_t total) { total_ = total; }
  // One more item is done; `line` says which, and how it went.
  void step(std::string_view line);
  // A line that stays on the terminal, above the bar.
  void note(std::string_view line);

 private:
  void draw();
  void erase();

  Output& output_;
  std::size_t total_ = 0;
  std::size_t done_ = 0;
  bool drawn_ = false;
};

}  // namespace paperloom::reader
