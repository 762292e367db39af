#include "apps/reader/TerminalQuery.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <charconv>
#include <chrono>
#include <cstdlib>
#include <string>
#include <string_view>

#include "apps/reader/Files.h"
#include "apps/reader/Signals.h"

namespace paperloom::reader {
namespace {

using Clock = std::chrono::steady_clock;

// The last question is one that every terminal answers: what has not come before that answer does
// not come.
constexpr std::string_view kittyQuestion = "\x1b_Gi=31,s=1,v=1,a=q,t=d,f=24;AAAA\x1b\\";
constexpr std::string_view nameQuestion = "\x1b[>q";
constexpr std::string_view cellQuestion = "\x1b[16t";
constexpr std::string_view attributesQuestion = "\x1b[c";
constexpr std::size_t longestAnswer = 4096;

std::chrono::milliseconds longestSilence() {
  const bool isFar = std::getenv("SSH_TTY") != nullptr || std::getenv("SSH_CONNECTION") != nullptr;
  return std::chrono::milliseconds(isFar ? 1000 : 300);
}

// A terminal that hands over every byte and shows none; as before when this object goes.
class RawTerminal {
 public:
  explicit RawTerminal(int fd) : fd_(fd) {
    int waiting = 0;
    isUsable_ = fd >= 0 && ::tcgetpgrp(fd) == ::getpgrp() && ::tcgetattr(fd, &before_) == 0 &&
                ::ioctl(fd, FIONREAD, &waiting) == 0 && waiting == 0;
    if (!isUsable_) return;
    termios raw = before_;
    raw.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
    raw.c_cc[VMIN] = 0;
    raw.c_cc[VTIME] = 0;
    isUsable_ = ::tcsetattr(fd, TCSANOW, &raw) == 0;
  }
  ~RawTerminal() {
    if (isUsable_) ::tcsetattr(fd_, TCSANOW, &before_);
  }
  RawTerminal(const RawTerminal&) = delete;
  RawTerminal& operator=(const RawTerminal&) = delete;

  bool isUsable() const { return isUsable_; }

 private:
  int fd_;
  bool isUsable_ = false;
  termios before_{};
};

// Where the answer to the last question begins: ESC [ ? numbers c.
std::size_t attributesIn(std::string_view bytes) {
  for (std::size_t start = 0; (start = bytes.find("\x1b[?", start)) != std::string_view::npos;
       ++start) {
    const auto end = bytes.find_first_not_of("0123456789;", start + 3);
    if (end != std::string_view::npos && bytes[end] == 'c') return start;
  }
  return std::string_view::npos;
}

std::string answersTo(int fd, const std::string& questions) {
  if (::write(fd, questions.data(), questions.size()) < 0) return {};
  const auto deadline = Clock::now() + longestSilence();
  std::string bytes;
  while (attributesIn(bytes) == std::string_view::npos && bytes.size() < longestAnswer) {
    Signals::throwIfReceived();
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
    if (left.count() <= 0) break;
    std::array<pollfd, 2> waiting = {pollfd{fd, POLLIN, 0},
                                     pollfd{Signals::fileDescriptor(), POLLIN, 0}};
    if (::poll(waiting.data(), waiting.size(), static_cast<int>(left.count())) <= 0) continue;
    std::array<char, 512> buffer{};
    const ssize_t got = ::read(fd, buffer.data(), buffer.size());
    if (got > 0) bytes.append(buffer.data(), static_cast<std::size_t>(got));
    if ((waiting[0].revents & (POLLHUP | POLLERR)) != 0) break;
  }
  return bytes;
}

// Attribute 4 is sixel graphics.
bool hasSixel(std::string_view bytes) {
  const auto start = attributesIn(bytes);
  if (start == std::string_view::npos) return false;
  const std::string_view numbers = bytes.substr(start + 3, bytes.find('c', start) - start - 3);
  return (";" + std::string(numbers) + ";").find(";4;") != std::string::npos;
}

void readCell(std::string_view bytes, TerminalAnswers& answers) {
  constexpr std::string_view prefix = "\x1b[6;";
  const auto start = bytes.find(prefix);
  if (start == std::string_view::npos) return;
  const char* const end = bytes.data() + bytes.size();
  int height = 0;
  int width = 0;
  const auto first = std::from_chars(bytes.data() + start + prefix.size(), end, height);
  if (first.ec != std::errc() || first.ptr == end || *first.ptr != ';') return;
  const auto second = std::from_chars(first.ptr + 1, end, width);
  if (second.ec != std::errc() || second.ptr == end || *second.ptr != 't') return;
  answers.cellWidth = width;
  answers.cellHeight = height;
}

}  // namespace

TerminalAnswers askTerminal(bool throughMultiplexer) {
  const Descriptor terminal(::open("/dev/tty", O_RDWR | O_CLOEXEC | O_NOCTTY));
  const RawTerminal raw(terminal.get());
  if (!raw.isUsable()) return {};
  std::string questions;
  if (!throughMultiplexer) questions.append(kittyQuestion).append(nameQuestion);
  questions.append(cellQuestion).append(attributesQuestion);
  const std::string bytes = answersTo(terminal.get(), questions);
  TerminalAnswers answers;
  answers.kitty = bytes.find("\x1b_Gi=31;OK") != std::string::npos;
  for (const char* name : {"\x1bP>|iTerm2", "\x1bP>|WezTerm", "\x1bP>|mintty"}) {
    answers.iterm2 = answers.iterm2 || bytes.find(name) != std::string::npos;
  }
  answers.sixel = hasSixel(bytes);
  readCell(bytes, answers);
  return answers;
}

}  // namespace paperloom::reader
