#include "apps/reader/Text.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <ctime>
#include <iterator>

namespace paperloom::reader {
namespace {

struct Decoded {
  char32_t character = 0xFFFD;
  std::size_t length = 1;
};

// The character that `text` starts with; U+FFFD, one byte long, where it is not valid UTF-8.
Decoded decode(std::string_view text) {
  const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  const unsigned char lead = byte(0);
  if (lead < 0x80) return {lead, 1};
  const std::size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
  if (lead < 0xC2 || lead > 0xF4 || text.size() < length) return {};
  char32_t character = lead & (0x7FU >> length);
  for (std::size_t i = 1; i < length; ++i) {
    if ((byte(i) & 0xC0) != 0x80) return {};
    character = character << 6 | (byte(i) & 0x3FU);
  }
  static constexpr std::array<char32_t, 5> smallest = {0, 0, 0x80, 0x800, 0x10000};
  const bool surrogate = character >= 0xD800 && character <= 0xDFFF;
  if (character < smallest[length] || character > 0x10FFFF || surrogate) return {};
  return {character, length};
}

struct Range {
  char32_t first;
  char32_t last;
};

template <std::size_t size>
bool within(const Range (&ranges)[size], char32_t character) {
  const auto* end = std::end(ranges);
  const auto* range = std::lower_bound(std::begin(ranges), end, character,
                                       [](const Range& r, char32_t c) { return r.last < c; });
  return range != end && range->first <= character;
}

// Marks that stand over the character before them, and characters without a shape.
constexpr Range zeroWidth[] = {
    {0x300, 0x36F},     {0x483, 0x489},    {0x591, 0x5BD},   {0x610, 0x61A},   {0x64B, 0x65F},
    {0x6D6, 0x6DC},     {0x900, 0x902},    {0x93C, 0x93C},   {0x941, 0x948},   {0xE31, 0xE31},
    {0xE34, 0xE3A},     {0xE47, 0xE4E},    {0x1AB0, 0x1AFF}, {0x1DC0, 0x1DFF}, {0x200B, 0x200F},
    {0x2060, 0x2064},   {0x20D0, 0x20FF},  {0xFE00, 0xFE0F}, {0xFE20, 0xFE2F}, {0xFEFF, 0xFEFF},
    {0x1F3FB, 0x1F3FF}, {0xE0100, 0xE01EF}};

// East Asian wide and full-width characters, and pictographs.
constexpr Range doubleWidth[] = {
    {0x1100, 0x115F},   {0x231A, 0x231B},   {0x23E9, 0x23EC},   {0x2614, 0x2615},
    {0x26A1, 0x26A1},   {0x26BD, 0x26BE},   {0x2705, 0x2705},   {0x2728, 0x2728},
    {0x274C, 0x274C},   {0x2753, 0x2755},   {0x2795, 0x2797},   {0x2B50, 0x2B50},
    {0x2E80, 0x303E},   {0x3041, 0x33FF},   {0x3400, 0x4DBF},   {0x4E00, 0x9FFF},
    {0xA000, 0xA4CF},   {0xA960, 0xA97F},   {0xAC00, 0xD7A3},   {0xF900, 0xFAFF},
    {0xFE30, 0xFE6F},   {0xFF00, 0xFF60},   {0xFFE0, 0xFFE6},   {0x1F1E6, 0x1F1FF},
    {0x1F300, 0x1F64F}, {0x1F680, 0x1F6FF}, {0x1F900, 0x1F9FF}, {0x1FA70, 0x1FAFF},
    {0x20000, 0x3FFFD}};

// What can move the cursor, speak to the terminal or turn the direction of the text.
bool dangerous(char32_t c) {
  return c < 0x20 || (c >= 0x7F && c <= 0x9F) || (c >= 0x202A && c <= 0x202E) ||
         (c >= 0x2066 && c <= 0x2069);
}

bool space(char32_t c) {
  return c == ' ' || (c >= '\t' && c <= '\r') || c == 0x2028 || c == 0x2029;
}

enum class Blanks { lines, oneEach, oneForMany };

std::string clean(std::string_view text, Blanks blanks) {
  std::string result;
  result.reserve(text.size());
  bool gap = false;
  while (!text.empty()) {
    const Decoded next = decode(text);
    const char32_t c = next.character;
    if (blanks == Blanks::lines && (c == '\n' || c == 0x2028 || c == 0x2029)) {
      result += '\n';
      gap = false;
    } else if (blanks == Blanks::oneEach && space(c)) {
      result += ' ';
    } else if (space(c)) {
      gap = true;
    } else if (!dangerous(c)) {
      if (gap && !result.empty() && result.back() != '\n') result += ' ';
      gap = false;
      if (c == 0xFFFD) {
        result += "\xEF\xBF\xBD";
      } else {
        result += text.substr(0, next.length);
      }
    }
    text.remove_prefix(next.length);
  }
  return result;
}

int characterWidth(char32_t c) {
  if (dangerous(c) || within(zeroWidth, c)) return 0;
  return within(doubleWidth, c) ? 2 : 1;
}

// How many bytes of `text` fit into `width` columns; at least one character.
std::size_t bytesWithin(std::string_view text, int width) {
  std::size_t used = 0;
  int columns = 0;
  while (used < text.size()) {
    const Decoded next = decode(text.substr(used));
    columns += characterWidth(next.character);
    if (columns > width && used > 0) break;
    used += next.length;
  }
  return used;
}

void wrapParagraph(std::string_view text, int width, std::vector<std::string>& lines) {
  std::string line;
  int columns = 0;
  while (!text.empty()) {
    std::string_view word = text.substr(0, text.find(' '));
    text.remove_prefix(std::min(text.size(), word.size() + 1));
    int wordColumns = displayWidth(word);
    if (columns > 0 && columns + 1 + wordColumns > width) {
      lines.push_back(std::move(line));
      line.clear();
      columns = 0;
    }
    while (wordColumns > width) {
      const std::size_t part = bytesWithin(word, width);
      if (part >= word.size()) break;
      lines.emplace_back(word.substr(0, part));
      word.remove_prefix(part);
      wordColumns = displayWidth(word);
    }
    if (columns > 0) {
      line += ' ';
      ++columns;
    }
    line += word;
    columns += wordColumns;
  }
  lines.push_back(std::move(line));
}

std::string localTime(Date date, const char* format) {
  const std::time_t seconds =
      std::chrono::floor<std::chrono::seconds>(date).time_since_epoch().count();
  std::tm fields{};
  if (::localtime_r(&seconds, &fields) == nullptr) return {};
  std::array<char, 80> text{};
  return {text.data(), std::strftime(text.data(), text.size(), format, &fields)};
}

}  // namespace

std::string printable(std::string_view text) { return clean(text, Blanks::lines); }

std::string printableLine(std::string_view text) { return clean(text, Blanks::oneForMany); }

std::string printableText(std::string_view text) { return clean(text, Blanks::oneEach); }

int displayWidth(std::string_view text) {
  int columns = 0;
  while (!text.empty()) {
    if (text.starts_with("\x1b[")) {
      text.remove_prefix(std::min(text.find('m'), text.size() - 1) + 1);
      continue;
    }
    const Decoded next = decode(text);
    columns += characterWidth(next.character);
    text.remove_prefix(next.length);
  }
  return columns;
}

std::vector<std::string> wrap(std::string_view text, int width) {
  std::vector<std::string> lines;
  width = std::max(width, 1);
  while (!text.empty()) {
    const std::string_view paragraph = text.substr(0, text.find('\n'));
    text.remove_prefix(std::min(text.size(), paragraph.size() + 1));
    wrapParagraph(paragraph, width, lines);
  }
  return lines;
}

std::string fit(std::string_view text, int width) {
  if (displayWidth(text) <= width) return std::string(text);
  return std::string(text.substr(0, bytesWithin(text, width - 1))) + "…";
}

std::string byteSize(std::int64_t bytes) {
  if (bytes < 1024)
    return count(static_cast<std::size_t>(std::max<std::int64_t>(bytes, 0)), "byte");
  const double kilobytes = static_cast<double>(bytes) / 1024;
  return kilobytes < 1024 ? fmt::format("{:.1f} KB", kilobytes)
                          : fmt::format("{:.1f} MB", kilobytes / 1024);
}

std::string day(Date date) {
  std::string text = localTime(date, "%e %B %Y");
  if (text.starts_with(' ')) text.erase(0, 1);
  return text;
}

std::string timeOfDay(Date date, bool withSeconds) {
  return localTime(date, withSeconds ? "%H:%M:%S" : "%H:%M");
}

std::string dateAndTime(Date date) { return day(date) + ", " + timeOfDay(date); }

std::string count(std::size_t number, std::string_view noun) {
  return fmt::format("{} {}{}", number, noun, number == 1 ? "" : "s");
}

}  // namespace paperloom::reader
