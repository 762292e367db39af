#include "apps/reader/Progress.h"

#include <fmt/format.h>

#include <algorithm>
#include <string>

#include "apps/reader/Failure.h"

namespace paperloom::reader {

Progress::~Progress() {
  try {
    erase();
    output_.flush();
  } catch (const Failure&) {
    // The command's own flush meets the same error.
  }
}

void Progress::step(std::string_view line) {
  ++done_;
  if (output_.terminal().interactive) {
    draw();
  } else {
    output_.line(line);
  }
  output_.flush();
}

void Progress::note(std::string_view line) {
  erase();
  output_.sentence(line, 4);
  if (output_.terminal().interactive) draw();
  output_.flush();
}

void Progress::draw() {
  const std::size_t total = std::max({total_, done_, std::size_t{1}});
  const auto width = static_cast<std::size_t>(std::clamp(output_.terminal().columns - 24, 10, 50));
  const std::size_t filled = width * done_ / total;
  std::string bar;
  for (std::size_t i = 0; i < width; ++i) bar += i < filled ? "█" : "░";
  output_.write(fmt::format("\r{} {}/{}", bar, done_, total));
  drawn_ = true;
}

void Progress::erase() {
  if (!drawn_) return;
  output_.write(fmt::format("\r{:{}}\r", "", output_.terminal().columns - 1));
  drawn_ = false;
}

}  // namespace paperloom::reader
