#include <span>
#include <string>

#include "cmake/EmbeddedFile.h"
#include "paperloom/resources/Resources.h"

namespace paperloom {

std::span<const EmbeddedFile> embeddedResources();

std::optional<std::string_view> libraryResource(std::string_view name, std::string_view type) {
  const std::string path = std::string(name) + "." + std::string(type);
  for (const EmbeddedFile& file : embeddedResources()) {
    if (file.path == path) return file.bytes;
  }
  return std::nullopt;
}

}  // namespace paperloom
