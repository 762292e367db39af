#pragma once

namespace paperloom::reader {

// What a terminal says of itself when it is asked.
struct TerminalAnswers {
  bool kitty = false;   // takes pictures by the kitty protocol
  bool iterm2 = false;  // is one that takes them by iTerm2's
  bool sixel = false;
  int cellWidth = 0;  // in pixels; 0 when it does not say
  int cellHeight = 0;
};

// Asks the controlling terminal, which is waited for a second at most; nothing where there is none,
// where the program runs in the background, or where something has been typed already. Through a
// terminal multiplexer only what that can show itself is asked for. Throws Interrupted on Ctrl-C.
TerminalAnswers askTerminal(bool throughMultiplexer);

}  // namespace paperloom::reader
