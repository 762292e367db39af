#pragma once

#include <string>
#include <string_view>

#include "apps/reader/Terminal.h"

namespace paperloom::reader {

// Standard output. A reader at the other end that goes away ends the command quietly; a full disk
// ends it with a sentence.
class Output {
 public:
  explicit Output(Terminal::When colours = Terminal::When::automatic);

  const Terminal& terminal() const { return terminal_; }
  const Style& style() const { return style_; }

  void write(std::string_view bytes);
  void line(std::string_view text = {});
  // Printable text, styled or not, broken into lines where the output has a width; those after the
  // first begin after so many columns.
  void sentence(std::string_view text, int hanging = 0);
  // A row of a table: its text begins in `column`, or on lines of its own where there is no room.
  void row(const std::string& label, int column, const std::string& text);
  // What is written from here to the next flush() is text to read: on a terminal that is too small
  // for it, the person's pager shows it.
  void beginPage();
  // Must be called at the end of a command: what was written may fail only now.
  void flush();

 private:
  [[noreturn]] static void failed();
  bool isTooLong(std::string_view page) const;

  Terminal terminal_;
  Style style_;
  bool paging_ = false;
  std::string page_;
};

}  // namespace paperloom::reader
