#pragma once

#include <filesystem>

namespace paperloom::internal {

// Makes the folder and whatever is missing above it, for their owner alone (0700). False when it
// is no folder afterwards.
bool createPrivateFolders(const std::filesystem::path& folder);

// Whether it is a folder of this user, reached over links or not.
bool isOwnFolder(const std::filesystem::path& folder);

}  // namespace paperloom::internal
