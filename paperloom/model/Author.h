#pragma once

#include <optional>
#include <string>
#include <vector>

#include "paperloom/platform/Export.h"
#include "paperloom/platform/JSON.h"

namespace paperloom {

// An entry of a by-line.
struct PAPERLOOM_EXPORT Author {
  std::string name;
  std::optional<std::string> jobTitle;

  // Entries without a name are dropped.
  static std::vector<Author> parseList(const JSONObjectList& list);
};

}  // namespace paperloom
