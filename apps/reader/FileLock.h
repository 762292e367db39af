#pragma once

#include <chrono>
#include <filesystem>

#include "apps/reader/Files.h"

namespace paperloom::reader {

// A lock between processes (and between holders in one): a byte of a file of its own, which holds
// nothing else. It ends with this object or with the process, however that ends.
class FileLock {
 public:
  enum class Kind { shared, exclusive };
  enum class Wait { uninterrupted, untilSignal };

  // Makes the file for an exclusive lock. A shared one needs none: where there is no file, nobody
  // has ever locked it. Throws Failure when the lock is still held elsewhere after `patience`, and
  // Interrupted where the wait ends with a signal.
  FileLock(const std::filesystem::path& file, off_t byte, Kind kind,
           std::chrono::milliseconds patience, Wait wait);

 private:
  Descriptor file_;
};

}  // namespace paperloom::reader
