#include "paperloom/platform/internal/base/PrivateFolders.h"

#include <sys/stat.h>
#include <unistd.h>

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

bool isOwnFolder(const std::filesystem::path& folder) {
  struct stat info {};
  return ::stat(folder.c_str(), &info) == 0 && S_ISDIR(info.st_mode) && info.st_uid == ::geteuid();
}

}  // namespace paperloom::internal
