#pragma once

#include <sys/types.h>

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace paperloom::reader {

// The whole file, or standard input for "-". Throws Failure with a sentence.
std::string readInput(const std::string& path);

// The whole file; nothing when there is none. Throws Failure when it cannot be read.
std::optional<std::string> readFileIfPresent(const std::filesystem::path& path);

// Puts `bytes` in the place of the file, whole or not at all; with Durable::yes also when the power
// fails. Throws Failure with a sentence.
enum class Durable { no, yes };
void writeWholeFile(const std::filesystem::path& path, std::string_view bytes, mode_t mode,
                    Durable durable);

}  // namespace paperloom::reader
