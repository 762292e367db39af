#include <nlohmann/json.hpp>
#include <string>

#include "paperloom/platform/JSONWriter.h"

namespace paperloom {

std::optional<Data> writeJSONObject(const std::vector<JSONMember>& members) {
  auto object = nlohmann::ordered_json::object();
  for (const auto& [key, value] : members) {
    nlohmann::ordered_json& member = object[std::string(key)];
    std::visit([&](const auto& held) { member = held; }, value);
  }
  try {
    return Data(object.dump(/*indent=*/2));
  } catch (const nlohmann::json::exception&) {
    return std::nullopt;
  }
}

}  // namespace paperloom
