#include "paperloom/platform/internal/base/PrivateFolders.h"

#include <sys/stat.h>

namespace paperloom::internal {

bool createPrivateFolders(const std::filesystem::path& folder) {
  std::error_code error;
  if (std::filesystem::is_directory(folder, error)) return true;
  if (folder.has_relative_path() && folder.parent_path() != folder) {
    createPrivateFolders(folder.parent_path());
  }
  // Somebody else may have made it meanwhile.
  ::mkdir(folder.c_str(), 0700);
  return std::filesystem::is_directory(folder, error);
}

}  // namespace paperloom::internal
