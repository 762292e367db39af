#pragma once

#include <string_view>

#include "apps/reader/Terminal.h"

namespace paperloom::reader {

// Standard output. A reader at the other end that goes away ends the command quietly; a full disk
// ends it with a sentence.
class Output {
 public:
  Output();

  const Terminal& terminal() const { return terminal_; }
  const Style& style() const { return style_; }

  void write(std::string_view bytes);
  void line(std::string_view text = {});
  // Must be called at the end of a command: what was written may fail only now.
  void flush();

 private:
  [[noreturn]] static void failed();

  Terminal terminal_;
  Style style_;
};

}  // namespace paperloom::reader
