#pragma once

#include <sys/types.h>

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace paperloom::reader {

// An open file, closed with this object unless it is one of the three standard ones.
class Descriptor {
 public:
  explicit Descriptor(int fd) : fd_(fd) {}
  ~Descriptor();
  Descriptor(Descriptor&& other) noexcept;
  Descriptor& operator=(Descriptor&&) = delete;
  int get() const { return fd_; }
  bool isOpen() const { return fd_ >= 0; }

 private:
  int fd_;
};

// Ends the command with "cannot WHAT PATH: " and the text of errno.
[[noreturn]] void failWith(std::string_view what, const std::filesystem::path& path);

// The whole file, or standard input for "-". Throws Failure with a sentence.
std::string readInput(const std::string& path);
// The first line, without its end and without waiting for what may follow it. A byte order mark is
// no part of it. Throws Failure, also for a line of more than 64 KB.
std::string readInputLine(const std::string& path);

// Opens one of the reader's own small files, made with mode 0600 where `flags` has O_CREAT; closed
// when there is none. Throws Failure when it cannot be opened, and for what is no regular file of
// at most 1 MB.
Descriptor openOwnFile(const std::filesystem::path& path, int flags);
// All of such a file; nothing when there is none.
std::optional<std::string> readOwnFile(const std::filesystem::path& path);
std::string readAll(const Descriptor& file, const std::filesystem::path& path);

// Puts `bytes` in the place of the file, whole or not at all; with Durable::yes also when the power
// fails. Throws Failure with a sentence. Not for secrets: an end by force may leave a second file.
enum class Durable { no, yes };
void writeWholeFile(const std::filesystem::path& path, std::string_view bytes, mode_t mode,
                    Durable durable);

// Makes what was created, renamed or removed in the folder outlive a power failure.
void syncFolder(const std::filesystem::path& folder);

}  // namespace paperloom::reader
