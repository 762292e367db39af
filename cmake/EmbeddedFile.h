#pragma once

#include <cstddef>
#include <span>
#include <string_view>

namespace paperloom {

// One file that embed_files() linked into the program. Both views live as long as the process.
struct EmbeddedFile {
  std::string_view path;  // relative to the embedding's base folder
  std::string_view bytes;
};

}  // namespace paperloom
