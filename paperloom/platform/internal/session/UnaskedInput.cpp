#include "paperloom/platform/internal/session/UnaskedInput.h"

#include <linux/tcp.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <cstddef>

namespace paperloom::internal {
namespace {

// Tickets and other messages of TLS itself are small.
using Peeked = std::array<unsigned char, 16 * 1024>;

bool hasEnded(int socket) {
  pollfd waited{socket, POLLRDHUP, 0};
  return poll(&waited, 1, 0) != 0;
}

// How far the records reach that begin within these bytes; nothing when one is not of application
// data (RFC 8446 section 5.1) or its length has not come yet.
std::optional<std::size_t> endOfRecords(const unsigned char* bytes, std::size_t count) {
  constexpr std::size_t headSize = 5;
  constexpr unsigned char applicationData = 23;
  std::size_t end = 0;
  while (end < count) {
    if (count - end < headSize || bytes[end] != applicationData) return std::nullopt;
    end += headSize + bytes[end + 3] * std::size_t{256} + bytes[end + 4];
  }
  return end;
}

}  // namespace

std::optional<std::uint64_t> bytesReceived(int socket) {
  tcp_info info{};
  socklen_t size = sizeof info;
  const bool isTold = getsockopt(socket, IPPROTO_TCP, TCP_INFO, &info, &size) == 0 &&
                      size >= offsetof(tcp_info, tcpi_bytes_received) + sizeof(__u64);
  if (!isTold) return std::nullopt;
  return info.tcpi_bytes_received;
}

std::optional<std::uint64_t> bytesRead(int socket) {
  // Bytes may arrive between the two questions.
  for (int attempt = 0; attempt < 8; ++attempt) {
    const auto before = bytesReceived(socket);
    int unread = 0;
    if (!before || ioctl(socket, FIONREAD, &unread) != 0) return std::nullopt;
    if (bytesReceived(socket) == before) return *before - static_cast<std::uint64_t>(unread);
  }
  return std::nullopt;
}

UnaskedInput lookForInput(int socket, bool overTLS) {
  using Kind = UnaskedInput::Kind;
  Peeked peeked;
  const ssize_t count = recv(socket, peeked.data(), peeked.size(), MSG_PEEK | MSG_DONTWAIT);
  if (count < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) return {};
  const auto size = static_cast<std::size_t>(count);
  if (count <= 0 || !overTLS || size == peeked.size() || hasEnded(socket)) return {Kind::other};
  const auto end = endOfRecords(peeked.data(), size);
  const auto read = bytesRead(socket);
  if (!end || !read) return {Kind::other};
  return {Kind::records, *read + *end};
}

}  // namespace paperloom::internal
