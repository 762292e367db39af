#pragma once

#include <cstdlib>
#include <filesystem>
#include <string>

namespace paperloom::bench {

// A folder of its own, gone with it.
struct ScratchFolder {
  ScratchFolder() {
    std::string name = (std::filesystem::temp_directory_path() / "paperloom-bench-XXXXXX").string();
    if (::mkdtemp(name.data()) == nullptr) std::abort();
    path = name;
  }
  ~ScratchFolder() { std::filesystem::remove_all(path); }
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;
  std::filesystem::path path;
};

}  // namespace paperloom::bench
