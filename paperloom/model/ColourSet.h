#pragma once

#include <string>

namespace paperloom {

// Three colours as the service writes them: hexadecimal texts, never checked or converted.
struct ColourSet {
  std::string primaryColourHex;
  std::string secondaryColourHex;
  std::string accessibleColourHex;

  friend bool operator==(const ColourSet&, const ColourSet&) = default;
};

// The colours of a label on two backgrounds, kept like those of a ColourSet.
struct LabelColourSet {
  std::string labelColourOnNormalBackground;
  std::string labelColourOnSecondaryBackground;
};

}  // namespace paperloom
