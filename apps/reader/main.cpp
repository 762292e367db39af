#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <exception>
#include <iostream>
#include <string>
#include <string_view>

#include "apps/reader/CommandLine.h"
#include "apps/reader/Failure.h"
#include "apps/reader/FailureJSON.h"
#include "apps/reader/Signals.h"
#include "apps/reader/StatusLine.h"
#include "apps/reader/Text.h"

namespace paperloom::reader {
namespace {

// Whether failures are to be printed for programs; known before the command line is understood.
bool wantsJSON(int argc, char** argv) {
  const auto end = std::find(argv, argv + argc, std::string_view("--"));
  return std::find(argv, end, std::string_view("--json")) != end;
}

int run(int argc, char** argv) {
  CommandLine line;
  if (!line.parse(argc, argv)) return 0;
  Host host(line.global());
  line.action()(host);
  host.output().flush();
  return 0;
}

// A file that is opened must not take the place of a standard stream that the parent has closed.
void reopenStandardStreams() {
  for (int fd = ::open("/dev/null", O_RDWR); fd >= 0; fd = ::open("/dev/null", O_RDWR)) {
    if (fd <= STDERR_FILENO) continue;
    ::close(fd);
    return;
  }
}

// For programs on standard output, for people on standard error, which keeps the last word even
// when standard output is a terminal in mid-line.
int fail(const Failure& failure, bool json) {
  if (json && !failure.isPrinted && !failure.text.empty()) {
    std::fputs((dump(toJSON(failure), true) + "\n").c_str(), stdout);
  }
  std::fflush(stdout);
  StatusLine::erase();
  if (!failure.text.empty()) std::cerr << "error: " << printableText(failure.text) << "\n";
  return failure.status;
}

}  // namespace
}  // namespace paperloom::reader

int main(int argc, char** argv) {
  using namespace paperloom::reader;
  reopenStandardStreams();
  Signals::install();
  const bool json = wantsJSON(argc, argv);
  try {
    return run(argc, argv);
  } catch (const Failure& failure) {
    return fail(failure, json);
  } catch (const Interrupted& interrupted) {
    return fail(Failure("", 128 + interrupted.signal), json);
  } catch (const std::exception& error) {
    return fail(Failure(error.what()), json);
  }
}
