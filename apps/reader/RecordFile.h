#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace paperloom::reader {

// A small file with secrets, for its owner alone, that holds one text without a blank line.
//
// It is rewritten in place: every other way has a second file of the same content for a moment, and
// an end by force would leave it. A new text is first put behind the old one, after a blank line,
// and made durable; then it is copied to the head and the rest is cut off. Wherever that ends, the
// last text in the file that is whole is the one that counts.
//
// Whoever uses it holds a lock. All functions throw Failure.
class RecordFile {
 public:
  // Without a path the text is kept in memory.
  explicit RecordFile(std::filesystem::path path = {}) : path_(std::move(path)) {}

  const std::filesystem::path& path() const { return path_; }

  // What the file holds, the text that was written last first; none when there is no file.
  std::vector<std::string> texts() const;
  // The text ends in a line break.
  void write(std::string_view text);
  // Takes the room for the next write() from the disk already. The file exists.
  void reserve();
  // Gives it back.
  void release();
  // Whether there was one.
  bool remove();

 private:
  std::filesystem::path path_;
  std::string memory_;
};

}  // namespace paperloom::reader
