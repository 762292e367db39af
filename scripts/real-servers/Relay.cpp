#include "Relay.h"

#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>

namespace paperloom::servers {

int connectTo(int port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  const int made = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (connect(made, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) return made;
  close(made);
  return -1;
}

Relay::Relay(int port) : port_(port) {
  acceptor_ = std::thread([this] { acceptAll(); });
}

Relay::~Relay() {
  stopping_ = true;
  listener_.stop();
  acceptor_.join();
  for (std::thread& carrier : carriers_) carrier.join();
}

void Relay::acceptAll() {
  while (true) {
    const int client = listener_.accept();
    if (client < 0) return;
    const int number = ++connections_;
    carriers_.emplace_back([this, client, number] { carry(client, number); });
  }
}

void Relay::carry(int client, int number) {
  const int server = connectTo(port_);
  const int on = 1;
  for (const int socket : {client, server}) {
    setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  }
  std::array<pollfd, 2> sockets{{{client, POLLIN, 0}, {server, POLLIN, 0}}};
  bool open = server >= 0;
  while (open && !stopping_) {
    poll(sockets.data(), sockets.size(), 50);
    if (sockets[0].revents != 0) open = move(client, server, number);
    if (!open || sockets[1].revents == 0) continue;
    if (move(server, client, number)) continue;
    // The end of a connection that is swallowed is not passed on either.
    open = number <= swallowedUpTo_;
    sockets[1].fd = -1;
    sockets[1].revents = 0;
  }
  close(client);
  close(server);
}

bool Relay::move(int from, int to, int number) const {
  std::array<char, 16 * 1024> bytes;
  const ssize_t count = recv(from, bytes.data(), bytes.size(), 0);
  if (count <= 0) return false;
  if (number <= swallowedUpTo_) return true;
  for (ssize_t sent = 0; sent < count;) {
    const ssize_t more =
        send(to, bytes.data() + sent, static_cast<std::size_t>(count - sent), MSG_NOSIGNAL);
    if (more <= 0) return false;
    sent += more;
  }
  return true;
}

}  // namespace paperloom::servers
