#pragma once

#include <string>

#include "apps/reader/CommandInfo.h"

namespace paperloom::reader {

// What `command` does and understands, in lines of at most `width` columns. `path` is what is typed
// to get there, the program's name first.
std::string helpText(const std::string& path, const CommandInfo& command, int width);

// The manual page of the whole program, in the language of troff.
std::string manualPage(const CommandInfo& program);

// The completion of the whole program for "bash", "zsh" or "fish".
std::string completionFor(const std::string& shell, const CommandInfo& program);

}  // namespace paperloom::reader
