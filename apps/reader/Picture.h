#pragma once

#include <string>

#include "apps/reader/Terminal.h"
#include "paperloom/platform/Image.h"

namespace paperloom::reader {

// Pictures in a terminal: as true pixels where it takes them (by the kitty or the iTerm2 protocol,
// or as sixels), else in coloured characters. What the terminal takes is known by its name, or else
// it is asked, once, when a picture is about to be shown.
class Pictures {
 public:
  // `wish` is "auto" or empty, "never", "symbols", "sixel", "kitty" or "iterm2"; all but the first
  // hold whatever the terminal is.
  Pictures(const Terminal& terminal, const std::string& wish) : terminal_(terminal), wish_(wish) {}

  // Left to itself, a terminal with at least 256 colours, or one that takes pixels.
  bool areShown() { return way() != Way::none; }
  // Pixels do not go through a pager.
  bool arePixels() { return way() > Way::symbols; }

  // The picture, at most so many columns and rows large, after `indent` columns, its lines ending
  // in a newline. Empty where pictures are not shown, or the library that draws them is missing.
  std::string draw(const Image& image, int maxColumns, int maxRows, int indent = 0);

 private:
  enum class Way { unknown, none, symbols, sixel, kitty, iterm2 };

  Way way();
  Way find();
  Way ask(bool throughMultiplexer);

  Terminal terminal_;
  std::string wish_;
  Way way_ = Way::unknown;
};

}  // namespace paperloom::reader
