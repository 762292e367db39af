#include "apps/reader/Terminal.h"

#include <fmt/format.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>

#include "apps/reader/Environment.h"

namespace paperloom::reader {
namespace {

bool isOn(std::string_view value) { return !value.empty() && value != "0" && value != "false"; }

Terminal::When wishOfEnvironment() {
  using When = Terminal::When;
  if (!variable("NO_COLOR").empty()) return When::never;
  if (isOn(variable("CLICOLOR_FORCE")) || isOn(variable("FORCE_COLOR"))) return When::always;
  const bool isOff = variable("CLICOLOR") == "0" || !variable("FORCE_COLOR").empty();
  return isOff ? When::never : When::automatic;
}

Terminal::Colours coloursOfTerminal() {
  const std::string_view term = variable("TERM");
  if (term.empty() || term == "dumb") return Terminal::Colours::none;
  const std::string_view colorterm = variable("COLORTERM");
  if (colorterm == "truecolor" || colorterm == "24bit" || term.ends_with("-direct")) {
    return Terminal::Colours::direct;
  }
  if (term.find("256color") != std::string_view::npos) return Terminal::Colours::indexed;
  return Terminal::Colours::sixteen;
}

Terminal::Colours coloursWanted(bool interactive, Terminal::When wish) {
  using Colours = Terminal::Colours;
  if (wish == Terminal::When::automatic) wish = wishOfEnvironment();
  if (wish == Terminal::When::never) return Colours::none;
  if (wish == Terminal::When::automatic) return interactive ? coloursOfTerminal() : Colours::none;
  const std::string_view level = variable("FORCE_COLOR");
  if (level == "3") return Colours::direct;
  return std::max(coloursOfTerminal(), level == "2" ? Colours::indexed : Colours::sixteen);
}

void measure(int fileDescriptor, Terminal& terminal) {
  winsize size{};
  if (::ioctl(fileDescriptor, TIOCGWINSZ, &size) != 0 || size.ws_col == 0 || size.ws_row == 0) {
    return;
  }
  terminal.columns = size.ws_col;
  terminal.isMeasured = true;
  terminal.rows = std::max<int>(size.ws_row, 5);
  terminal.cellWidth = size.ws_xpixel / size.ws_col;
  terminal.cellHeight = size.ws_ypixel / size.ws_row;
}

}  // namespace

Terminal Terminal::of(int fileDescriptor, When colours) {
  constexpr int least = 20;
  constexpr int most = 1000;
  Terminal terminal;
  terminal.interactive = ::isatty(fileDescriptor) == 1;
  terminal.colours = coloursWanted(terminal.interactive, colours);
  if (terminal.interactive) measure(fileDescriptor, terminal);
  const std::string_view wish = variable("COLUMNS");
  int wished = 0;
  std::from_chars(wish.data(), wish.data() + wish.size(), wished);
  if (wished > 0) {
    terminal.columns = wished;
    terminal.isMeasured = true;
  }
  terminal.columns = std::clamp(terminal.columns, least, most);
  return terminal;
}

int Terminal::textWidth() const { return std::min(columns, 84); }

std::optional<Colour> Colour::parse(std::string_view hex) {
  if (hex.starts_with('#')) hex.remove_prefix(1);
  std::uint32_t value = 0;
  const auto [end, error] = std::from_chars(hex.data(), hex.data() + hex.size(), value, 16);
  if (hex.size() != 6 || error != std::errc() || end != hex.data() + hex.size()) return {};
  return Colour{static_cast<std::uint8_t>(value >> 16),
                static_cast<std::uint8_t>(value >> 8 & 0xFF),
                static_cast<std::uint8_t>(value & 0xFF)};
}

std::string Style::wrap(std::string_view codes, std::string_view text) const {
  if (colours_ == Terminal::Colours::none || text.empty()) return std::string(text);
  return fmt::format("\x1b[{}m{}\x1b[0m", codes, text);
}

std::string Style::colourCode(bool ground, Colour colour) const {
  const int base = ground ? 48 : 38;
  if (colours_ == Terminal::Colours::direct) {
    return fmt::format("{};2;{};{};{}", base, colour.red, colour.green, colour.blue);
  }
  const auto step = [](std::uint8_t channel) { return (channel * 5 + 127) / 255; };
  return fmt::format("{};5;{}", base,
                     16 + 36 * step(colour.red) + 6 * step(colour.green) + step(colour.blue));
}

std::string Style::badge(std::string_view text, std::optional<Colour> ground) const {
  if (colours_ == Terminal::Colours::none) return std::string(text);
  const std::string padded = fmt::format(" {} ", text);
  if (!ground || colours_ == Terminal::Colours::sixteen) return wrap("1;7", padded);
  // Perceived brightness of the ground (ITU-R BT.601 weights).
  const int brightness = (299 * ground->red + 587 * ground->green + 114 * ground->blue) / 1000;
  const Colour ink = brightness > 140 ? Colour{0, 0, 0} : Colour{255, 255, 255};
  return wrap(fmt::format("1;{};{}", colourCode(false, ink), colourCode(true, *ground)), padded);
}

std::string Style::tinted(std::string_view text, std::optional<Colour> colour) const {
  if (!colour || colours_ < Terminal::Colours::indexed) return dim(text);
  return wrap(colourCode(false, *colour), text);
}

}  // namespace paperloom::reader
