#pragma once

#include <optional>
#include <string_view>

namespace paperloom {

// The bytes of the file "<name>.<type>" that is compiled into the library; nothing when there is
// none. They live as long as the process.
std::optional<std::string_view> libraryResource(std::string_view name, std::string_view type);

}  // namespace paperloom
