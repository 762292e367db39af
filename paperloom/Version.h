#pragma once

#include "paperloom/platform/Export.h"

extern "C" {

// The library's version as a null-terminated text, "major.minor.patch".
PAPERLOOM_EXPORT extern const unsigned char PaperloomVersionString[];

// The library's version as a number, major.minor.
PAPERLOOM_EXPORT extern const double PaperloomVersionNumber;

}
