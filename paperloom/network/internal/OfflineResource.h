#pragma once

#include <string_view>

#include "paperloom/platform/Data.h"

namespace paperloom {

// The library's JSON resource `name`, decoded as an object and encoded again. Stops the program
// when there is no such resource or it holds no object.
Data offlineResource(std::string_view name);

}  // namespace paperloom
