#include "paperloom/testing/internal/SocketStream.h"

#include <poll.h>
#include <sys/socket.h>
#include <algorithm>
#include <cerrno>

namespace paperloom::sample {
namespace {

constexpr std::chrono::milliseconds readLimit = std::chrono::seconds(10);

// The events that came, or 0 when the time ran out.
short waitFor(int socket, short events, std::chrono::milliseconds limit) {
  const auto end = std::chrono::steady_clock::now() + limit;
  while (true) {
    int milliseconds = -1;
    if (limit.count() >= 0) {
      const auto left =
          std::chrono::ceil<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
      milliseconds = static_cast<int>(std::clamp<std::int64_t>(left.count(), 0, 3'600'000));
    }
    pollfd entry{socket, events, 0};
    const int ready = ::poll(&entry, 1, milliseconds);
    if (ready > 0) return entry.revents;
    if (ready == 0) return 0;
    if (errno != EINTR) return POLLERR;
  }
}

}  // namespace

bool SocketStream::waitForInput(std::chrono::milliseconds limit) {
  return inputStart_ < inputEnd_ || (waitFor(socket_, POLLIN, limit) & POLLIN) != 0;
}

bool SocketStream::pause(std::chrono::milliseconds time) {
  return time.count() == 0 || waitFor(socket_, POLLRDHUP, time) == 0;
}

bool SocketStream::flush() {
  std::size_t sent = 0;
  while (sent < output_.size()) {
    const auto count = ::send(socket_, output_.data() + sent, output_.size() - sent, MSG_NOSIGNAL);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) break;
    sent += static_cast<std::size_t>(count);
  }
  const bool whole = sent == output_.size();
  output_.clear();
  return whole;
}

std::optional<char> SocketStream::read() {
  if (inputStart_ == inputEnd_) {
    if (!waitForInput(readLimit)) return std::nullopt;
    ssize_t count = 0;
    do {
      count = ::recv(socket_, input_.data(), input_.size(), 0);
    } while (count < 0 && errno == EINTR);
    if (count <= 0) return std::nullopt;
    inputStart_ = 0;
    inputEnd_ = static_cast<std::size_t>(count);
  }
  return input_[inputStart_++];
}

}  // namespace paperloom::sample
