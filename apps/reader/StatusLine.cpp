#include "apps/reader/StatusLine.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>

#include "apps/reader/Terminal.h"
#include "apps/reader/Text.h"
#include "paperloom/platform/Date.h"

namespace paperloom::reader {
namespace {

constexpr std::chrono::milliseconds untilShown{500};
constexpr std::chrono::seconds betweenTicks{1};

int columnsShown = 0;

// Past standard error's buffer, in which nothing lies.
void write(const std::string& text) {
  [[maybe_unused]] const auto written = ::write(STDERR_FILENO, text.data(), text.size());
}

bool canShow() {
  const char* term = std::getenv("TERM");
  return ::isatty(STDERR_FILENO) == 1 && term != nullptr && std::string_view(term) != "dumb";
}

}  // namespace

void StatusLine::show(std::string_view text) {
  const std::string line = fit(text, Terminal::of(STDERR_FILENO).columns - 1);
  const int columns = displayWidth(line);
  write(
      fmt::format("\r{}{}", line,
                  std::string(static_cast<std::size_t>(std::max(0, columnsShown - columns)), ' ')));
  columnsShown = columns;
}

void StatusLine::erase() {
  if (columnsShown == 0) return;
  write(fmt::format("\r{}\r", std::string(static_cast<std::size_t>(columnsShown), ' ')));
  columnsShown = 0;
}

Waiting::Waiting(std::string whom) : whom_(std::move(whom)) {
  if (!whom_.empty() && !canShow()) whom_.clear();
  restart();
}

Waiting::~Waiting() { StatusLine::erase(); }

int Waiting::untilTick() const {
  if (whom_.empty()) return -1;
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(next_ - Clock::now());
  return static_cast<int>(std::max<std::int64_t>(left.count(), 0));
}

void Waiting::tick() {
  const auto now = Clock::now();
  if (whom_.empty() || now < next_) return;
  const auto seconds = std::chrono::floor<std::chrono::seconds>(now - begin_).count();
  const int columns = Terminal::of(STDERR_FILENO).columns;
  const std::string sofar = seconds == 0 ? "" : fmt::format(" ({} s)", seconds);
  const std::string narrow = fmt::format("Waiting for {}{}", fit(whom_, columns - 21), sofar);
  StatusLine::show(
      columns < 60 ? narrow : fmt::format("Waiting for {} since {}{} ...", whom_, since_, sofar));
  next_ += betweenTicks;
  if (next_ <= now) next_ = now + betweenTicks;
}

void Waiting::restart() {
  if (whom_.empty()) return;
  StatusLine::erase();
  begin_ = Clock::now();
  next_ = begin_ + untilShown;
  since_ = timeOfDay(currentDate(), true);
}

}  // namespace paperloom::reader
