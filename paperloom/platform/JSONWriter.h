#pragma once

#include <optional>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "paperloom/platform/Data.h"

namespace paperloom {

using JSONMember = std::pair<std::string_view, std::variant<std::string_view, bool>>;

// A JSON object of these members in this order, pretty-printed. Nothing when a text is not valid
// UTF-8: JSON cannot hold it (RFC 8259 section 8.1).
[[nodiscard]] std::optional<Data> writeJSONObject(const std::vector<JSONMember>& members);

}  // namespace paperloom
