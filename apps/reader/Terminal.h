#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace paperloom::reader {

// What the place that output goes to can show. A pipe or a file shows plain text; so does a
// terminal when NO_COLOR is not empty, CLICOLOR is 0 or TERM is "dumb". CLICOLOR_FORCE and
// FORCE_COLOR, neither empty nor 0, bring colours everywhere. A wish that is spoken out goes before
// all of these. COLUMNS goes before the terminal's own width.
struct Terminal {
  enum class Colours { none, sixteen, indexed, direct };
  enum class When { automatic, always, never };

  bool interactive = false;
  Colours colours = Colours::none;
  int columns = 80;
  int rows = 24;
  // Of a character cell, in pixels; 0 when the terminal does not say.
  int cellWidth = 0;
  int cellHeight = 0;

  static Terminal of(int fileDescriptor, When colours = When::automatic);

  // Whether `columns` is more than a guess, so that lines are to be broken there.
  bool isMeasured = false;

  // Columns for running text: no wider than is good to read.
  int textWidth() const;
};

struct Colour {
  std::uint8_t red = 0;
  std::uint8_t green = 0;
  std::uint8_t blue = 0;

  // "#1a2B3c" or "1a2b3c"; nothing for other texts.
  static std::optional<Colour> parse(std::string_view hex);
};

// Dresses printable text in the escape sequences that a terminal understands; returns it unchanged
// where there are no colours.
class Style {
 public:
  explicit Style(const Terminal& terminal) : colours_(terminal.colours) {}

  std::string bold(std::string_view text) const { return wrap("1", text); }
  std::string dim(std::string_view text) const { return wrap("2", text); }
  std::string italic(std::string_view text) const { return wrap("3", text); }
  std::string underlined(std::string_view text) const { return wrap("4", text); }

  // Text on a ground of that colour, black or white as is easier to read. Without a colour, or
  // where the terminal has too few, the terminal's own colours swapped.
  std::string badge(std::string_view text, std::optional<Colour> ground) const;
  // A decoration, such as a rule, in that colour.
  std::string tinted(std::string_view text, std::optional<Colour> colour) const;

 private:
  std::string wrap(std::string_view codes, std::string_view text) const;
  std::string colourCode(bool ground, Colour colour) const;

  Terminal::Colours colours_;
};

}  // namespace paperloom::reader
