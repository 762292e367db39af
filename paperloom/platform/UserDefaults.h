#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "paperloom/platform/Export.h"

namespace paperloom {

// Small settings by key that outlive the process: numbers and texts. Safe from any thread, and safe
// with other stores on the same file in this process and in others: each brings only its own
// changes to the file, and sees the others' at its next read.
//
// A change holds in memory at once and reaches the file with synchronize(). While the file cannot
// be written (full disk, no permission), changes stay in memory and go with the next attempt. A
// damaged file is an empty store, and so is one of another version: it is set aside under its name
// with ".damaged" added. A link, a device or another user's file is left alone. Each value has a
// checksum; one that does not fit is not there.
class PAPERLOOM_EXPORT UserDefaults {
 public:
  // The application's own store, in "defaults.sqlite" in its settings folder; never destroyed.
  static UserDefaults& standard();

  // The file and the folders above it are created with the first synchronize() that has something
  // to write, for their owner alone.
  explicit UserDefaults(std::filesystem::path file);
  // Tries to synchronize.
  ~UserDefaults();
  UserDefaults(const UserDefaults&) = delete;
  UserDefaults& operator=(const UserDefaults&) = delete;

  // 0.0 when nothing or no number is stored there.
  double doubleForKey(std::string_view key) const;
  // Nothing when nothing or no text is stored there.
  std::optional<std::string> stringForKey(std::string_view key) const;

  // Each holds at once, on every thread; synchronize() brings it to the file.
  void setDouble(double value, std::string_view key);
  void setString(std::string_view value, std::string_view key);
  void removeObject(std::string_view key);

  // Returns when every change is on disk, where it survives a power cut; false when that was not
  // possible. Waits for other writers up to two seconds.
  bool synchronize();

 private:
  class Store;
  std::unique_ptr<Store> store_;
};

}  // namespace paperloom
