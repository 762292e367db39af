#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "paperloom/platform/Export.h"

namespace paperloom {

// The one of `names` that differs from `word` by little more than a slip of the finger, the first
// of several; empty when none does. Any thread.
[[nodiscard]] PAPERLOOM_EXPORT std::string nearestName(std::string_view word,
                                                       const std::vector<std::string>& names);

}  // namespace paperloom
