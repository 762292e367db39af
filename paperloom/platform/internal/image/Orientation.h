#pragma once

#include <string_view>

namespace paperloom::internal {

// How the rows of a stored picture lie, as Exif numbers it (CIPA DC-008, tag 0x0112): 1 is upright,
// 2 to 4 are mirrored or upside down, 5 to 8 lie on their side.
constexpr int uprightOrientation = 1;

// The orientation that an Exif block tells, with or without its "Exif" heading. Upright when there
// is none or the block makes no sense.
int orientationFromExif(std::string_view block);

}  // namespace paperloom::internal
