#pragma once

#include "paperloom/platform/Export.h"

// The version that a program is compiled against. 1.x grows without breaking what was there
// (docs/versioning.md).
#define PAPERLOOM_VERSION_MAJOR 1
#define PAPERLOOM_VERSION_MINOR 0
#define PAPERLOOM_VERSION_PATCH 0

#define PAPERLOOM_VERSION_TEXT_(x) #x
#define PAPERLOOM_VERSION_TEXT(major, minor, patch) \
  PAPERLOOM_VERSION_TEXT_(major)                    \
  "." PAPERLOOM_VERSION_TEXT_(minor) "." PAPERLOOM_VERSION_TEXT_(patch)
// "major.minor.patch".
#define PAPERLOOM_VERSION \
  PAPERLOOM_VERSION_TEXT(PAPERLOOM_VERSION_MAJOR, PAPERLOOM_VERSION_MINOR, PAPERLOOM_VERSION_PATCH)
// For `#if`: whether the headers are of that version or a later one.
#define PAPERLOOM_VERSION_AT_LEAST(major, minor) \
  (PAPERLOOM_VERSION_MAJOR > (major) ||          \
   (PAPERLOOM_VERSION_MAJOR == (major) && PAPERLOOM_VERSION_MINOR >= (minor)))

#ifdef __cplusplus
extern "C" {
#endif

// The version of the library that the program runs with, as a null-terminated text,
// "major.minor.patch".
PAPERLOOM_EXPORT extern const unsigned char PaperloomVersionString[];

// The same as a number, major.minor.
PAPERLOOM_EXPORT extern const double PaperloomVersionNumber;

#ifdef __cplusplus
}
#endif
