#pragma once

#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <list>
#include <mutex>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "bench/Cores.h"

namespace paperloom::bench {

// Answers every request on a kept connection with the same bytes, as fast as blocking sockets do:
// so that what is measured is the client. A request is over when its bytes end with `requestEnd`.
class LoopbackServer {
 public:
  explicit LoopbackServer(std::size_t bodySize, std::string_view fields = "")
      : LoopbackServer(std::string(bodySize, 'x'), fields, "\r\n\r\n") {}

  LoopbackServer(const std::string& body, std::string_view fields, std::string requestEnd)
      : answer_("HTTP/1.1 200 OK\r\nContent-Type: application/json\r\n" + std::string(fields) +
                "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body),
        requestEnd_(std::move(requestEnd)),
        listener_(socket(AF_INET, SOCK_STREAM, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto* generic = reinterpret_cast<sockaddr*>(&address);
    if (bind(listener_, generic, size) != 0 || listen(listener_, 128) != 0 ||
        getsockname(listener_, generic, &size) != 0) {
      throw std::runtime_error("no loopback port");
    }
    url_ = "http://127.0.0.1:" + std::to_string(ntohs(address.sin_port)) + "/";
    acceptor_ = std::thread([this] { acceptAll(); });
  }

  ~LoopbackServer() {
    ::shutdown(listener_, SHUT_RDWR);
    acceptor_.join();
    {
      const std::lock_guard lock(mutex_);
      for (const int connection : connections_) ::shutdown(connection, SHUT_RDWR);
    }
    for (std::thread& thread : threads_) thread.join();
    for (const int connection : connections_) ::close(connection);
    ::close(listener_);
  }

  const std::string& url() const { return url_; }
  std::size_t requests() const { return requests_; }

 private:
  void acceptAll() {
    stayOnFirstCore();  // and so do the threads it starts
    while (true) {
      const int connection = accept(listener_, nullptr, nullptr);
      if (connection < 0) return;
      const int on = 1;
      setsockopt(connection, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
      const std::lock_guard lock(mutex_);
      connections_.push_back(connection);
      threads_.emplace_back([this, connection] { serve(connection); });
    }
  }

  void serve(int connection) {
    std::string input;
    char buffer[4096];
    while (true) {
      const ssize_t count = recv(connection, buffer, sizeof buffer, 0);
      if (count <= 0) return;
      input.append(buffer, static_cast<std::size_t>(count));
      if (!input.ends_with(requestEnd_)) continue;
      input.clear();
      ++requests_;
      std::string_view left = answer_;
      while (!left.empty()) {
        const ssize_t sent = ::send(connection, left.data(), left.size(), MSG_NOSIGNAL);
        if (sent <= 0) return;
        left.remove_prefix(static_cast<std::size_t>(sent));
      }
    }
  }

  const std::string answer_;
  const std::string requestEnd_;
  const int listener_;
  std::string url_;
  std::atomic<std::size_t> requests_ = 0;
  std::mutex mutex_;
  std::vector<int> connections_;
  std::list<std::thread> threads_;
  std::thread acceptor_;
};

}  // namespace paperloom::bench
