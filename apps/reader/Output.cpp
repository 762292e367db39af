#include "apps/reader/Output.h"

#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <string>

#include "apps/reader/Failure.h"

namespace paperloom::reader {

Output::Output() : terminal_(Terminal::of(STDOUT_FILENO)), style_(terminal_) {}

void Output::write(std::string_view bytes) {
  if (bytes.empty()) return;  // perhaps without an address, which fwrite may not be given
  if (std::fwrite(bytes.data(), 1, bytes.size(), stdout) != bytes.size()) failed();
}

void Output::line(std::string_view text) {
  write(text);
  write("\n");
}

void Output::flush() {
  if (std::fflush(stdout) != 0) failed();
}

void Output::failed() {
  if (errno == EPIPE) throw Failure("", 128 + SIGPIPE);
  throw Failure(std::string("the output cannot be written: ") + std::strerror(errno));
}

}  // namespace paperloom::reader
