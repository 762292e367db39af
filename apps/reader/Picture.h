#pragma once

#include <string>

#include "apps/reader/Terminal.h"
#include "paperloom/platform/Image.h"

namespace paperloom::reader {

// Whether pictures make sense there at all: a terminal with at least 256 colours.
bool canShowPictures(const Terminal& terminal);

// The picture for the terminal, at most so many columns and rows large, after `indent` columns, its
// lines ending in a newline:
// as true pixels where the terminal takes them (sixels, the kitty or the iTerm2 protocol), else in
// coloured characters. Empty where pictures cannot be shown.
std::string drawPicture(const Image& image, const Terminal& terminal, int maxColumns, int maxRows,
                        int indent = 0);

}  // namespace paperloom::reader
