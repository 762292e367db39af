#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "paperloom/platform/Date.h"

namespace paperloom::reader {

// Text from a server, a file or the command line, made safe to print: control characters, escape
// sequences' first bytes and direction overrides are taken out, invalid UTF-8 becomes U+FFFD. Line
// breaks stay.
std::string printable(std::string_view text);
// The same on one line: every run of white space becomes one space.
std::string printableLine(std::string_view text);
// The text as it is on one line, runs of blanks too, but for what is taken out of it; a line break
// or a tab becomes one space.
std::string printableText(std::string_view text);

// Columns that printable UTF-8 text takes in a terminal; the codes of a Style take none.
int displayWidth(std::string_view text);

// Printable text broken at spaces into lines of at most `width` columns; longer words are broken
// where they must. A line break in the text stays one; an empty text gives no line.
std::vector<std::string> wrap(std::string_view text, int width);

// Printable text cut to `width` columns, an ellipsis in the place of what was cut.
std::string fit(std::string_view text, int width);

// "1.4 MB", "20.5 KB", "312 bytes"
std::string byteSize(std::int64_t bytes);
// "1 March 2018", "14:05" or "14:05:09", "1 March 2018, 14:05", in the local time zone.
std::string day(Date date);
std::string timeOfDay(Date date, bool withSeconds = false);
std::string dateAndTime(Date date);
// "1 card", "12 cards"
std::string count(std::size_t number, std::string_view noun);

}  // namespace paperloom::reader
