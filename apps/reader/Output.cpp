#include "apps/reader/Output.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <utility>

#include "apps/reader/Failure.h"
#include "apps/reader/Pager.h"
#include "apps/reader/StatusLine.h"
#include "apps/reader/Text.h"

namespace paperloom::reader {

Output::Output(Terminal::When colours)
    : terminal_(Terminal::of(STDOUT_FILENO, colours)), style_(terminal_) {}

void Output::write(std::string_view bytes) {
  if (bytes.empty()) return;  // perhaps without an address, which fwrite may not be given
  if (paging_) {
    page_ += bytes;
    return;
  }
  StatusLine::erase();
  if (std::fwrite(bytes.data(), 1, bytes.size(), stdout) != bytes.size()) failed();
}

void Output::line(std::string_view text) {
  write(text);
  write("\n");
}

void Output::sentence(std::string_view text, int hanging) {
  if (!terminal_.isMeasured || displayWidth(text) <= terminal_.columns) return line(text);
  const std::size_t lead = std::min(text.find_first_not_of(' '), text.size());
  const int width = terminal_.columns - std::max(static_cast<int>(lead), hanging);
  std::string indent(lead, ' ');
  for (const std::string& each : wrap(text.substr(lead), width)) {
    line(indent + each);
    indent.assign(static_cast<std::size_t>(hanging), ' ');
  }
}

void Output::row(const std::string& label, int column, const std::string& text) {
  constexpr int indent = 6;
  const int taken = displayWidth(label);
  const bool fits = taken < column && column + displayWidth(text) <= terminal_.columns;
  if (fits || !terminal_.isMeasured) {
    return line(label + std::string(static_cast<std::size_t>(std::max(column - taken, 1)), ' ') +
                text);
  }
  std::string narrow;  // without the blanks that put things below each other
  for (const char c : label) {
    const bool isLead = narrow.find_first_not_of(' ') == std::string::npos;
    if (c != ' ' || isLead || narrow.back() != ' ') narrow += c;
  }
  sentence(narrow, indent);
  sentence(std::string(indent, ' ') + text, indent);
}

void Output::beginPage() { paging_ = terminal_.interactive; }

void Output::flush() {
  if (std::exchange(paging_, false)) {
    const std::string page = std::exchange(page_, "");
    if (!isTooLong(page) || !showInPager(page)) write(page);
  }
  if (std::fflush(stdout) != 0) failed();
}

// Whether the prompt that comes after it would push its beginning out of sight.
bool Output::isTooLong(std::string_view page) const {
  int rows = 1;
  while (!page.empty() && rows <= terminal_.rows) {
    const std::string_view line = page.substr(0, page.find('\n'));
    rows += std::max(1, (displayWidth(line) + terminal_.columns - 1) / terminal_.columns);
    page.remove_prefix(std::min(page.size(), line.size() + 1));
  }
  return rows > terminal_.rows;
}

void Output::failed() {
  if (errno == EPIPE) throw Failure("", 128 + SIGPIPE);
  throw Failure(std::string("the output cannot be written: ") + std::strerror(errno));
}

}  // namespace paperloom::reader
