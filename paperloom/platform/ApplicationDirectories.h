#pragma once

#include <filesystem>
#include <string_view>

#include "paperloom/platform/Export.h"

namespace paperloom {

// Where the host application keeps its files: a folder under its name below the user's XDG folders,
// or wherever the host says. A host says so before first use; a later change holds for what is
// opened after it. Safe from any thread.
class PAPERLOOM_EXPORT ApplicationDirectories {
 public:
  // The folder name used below the XDG folders, "paperloom" at first. False, and no change, unless
  // `name` can be the name of one folder.
  static bool setApplicationName(std::string_view name);

  // An empty path returns to the XDG folder.
  static void setCachesDirectory(std::filesystem::path directory);
  static void setSettingsDirectory(std::filesystem::path directory);
  static void setDataDirectory(std::filesystem::path directory);

  // Below XDG_CACHE_HOME (~/.cache), XDG_CONFIG_HOME (~/.config) and XDG_DATA_HOME
  // (~/.local/share); a relative path in these variables is ignored, as the XDG base directory
  // rules ask. Absolute; created for its owner alone (0700) when missing. That it exists is not
  // promised: the disk may be full. Empty when the user has no home.
  static std::filesystem::path cachesDirectory();
  static std::filesystem::path settingsDirectory();
  static std::filesystem::path dataDirectory();
};

}  // namespace paperloom
