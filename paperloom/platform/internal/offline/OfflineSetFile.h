#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "paperloom/platform/OfflineSets.h"

// One set as a file: a head with the name, the bodies one after the other, then an index of them,
// and at the very end where that begins. It is written once and never changed, so whoever has it
// open reads a whole set, whatever takes its place.
namespace paperloom::internal {

class OwnedFile {
 public:
  explicit OwnedFile(int descriptor = -1) : descriptor_(descriptor) {}
  OwnedFile(OwnedFile&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}
  OwnedFile& operator=(OwnedFile&& other) noexcept {
    std::swap(descriptor_, other.descriptor_);
    return *this;
  }
  ~OwnedFile();

  explicit operator bool() const { return descriptor_ >= 0; }
  int descriptor() const { return descriptor_; }
  // Nothing unless it is a regular file of this user.
  std::optional<struct stat> info() const;

 private:
  int descriptor_;
};

// What a set file ends with, and each body's place in it.
struct OfflineSetEntry {
  URL url;  // as it was asked for, without its fragment
  CachedURLResponse head;
  std::uint64_t offset = 0;
  std::uint64_t size = 0;
  std::uint64_t checksum = 0;
};

std::string offlineSetHead(const std::string& name);
std::string offlineSetTail(const OfflineSet& set, const std::vector<OfflineSetEntry>& entries,
                           std::uint64_t offset);

class OfflineSetFile {
 public:
  // A file that is damaged becomes a set that is. Its name is that of the file when it is lost.
  OfflineSetFile(OwnedFile file, const struct stat& info, const std::string& fileName);

  const OfflineSet& set() const { return set_; }
  // When it was received; nothing when the set does not hold it.
  std::optional<Date> timeOf(std::string_view url) const;
  // Nothing when the body is damaged.
  std::optional<CachedURLResponse> read(std::string_view url) const;

 private:
  bool readHead(std::uint64_t size);
  bool readIndex(std::uint64_t size);
  std::optional<std::string> bytesAt(std::uint64_t offset, std::uint64_t size) const;

  OwnedFile file_;
  OfflineSet set_;
  std::vector<OfflineSetEntry> entries_;
  std::unordered_map<std::string_view, const OfflineSetEntry*> byURL_;
};

}  // namespace paperloom::internal
