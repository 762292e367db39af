#pragma once

#include <string>

namespace paperloom::reader {

// A password: the first line of `file` ("-" is standard input), whose end is not waited for;
// without a file, typed at a prompt that shows nothing, or the first line of standard input when
// that is no terminal. Throws Failure when there is none. Passwords are never taken from the
// command line, which others can see.
std::string readPassword(const std::string& file);

}  // namespace paperloom::reader
