#include "paperloom/network/internal/OfflineResource.h"

#include <nlohmann/json.hpp>
#include <string>

#include "paperloom/platform/FatalError.h"
#include "paperloom/resources/Resources.h"

namespace paperloom {

Data offlineResource(std::string_view name) {
  const auto bytes = libraryResource(name, "json");
  if (!bytes) fatalError("the library has no JSON resource named " + std::string(name));
  const auto document = nlohmann::ordered_json::parse(*bytes, nullptr, /*allow_exceptions=*/false);
  if (!document.is_object()) {
    fatalError("the library's JSON resource " + std::string(name) + " holds no object");
  }
  return Data(document.dump());
}

}  // namespace paperloom
