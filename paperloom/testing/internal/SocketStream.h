#pragma once

#include <sys/types.h>
#include <array>
#include <chrono>
#include <string>

#include <httplib.h>

namespace paperloom::sample {

// One client's socket as httplib reads and writes it. Output is kept until flush(), so that a reply
// leaves in one piece and can still be shortened.
class SocketStream final : public httplib::Stream {
 public:
  explicit SocketStream(int socket) : socket_(socket) {}

  // False when the peer closed, the service stops, or nothing came for that long.
  bool waitForInput(std::chrono::milliseconds limit);

  // Returns early, with false, when the peer closes or the service stops. A negative time waits
  // for just that.
  bool pause(std::chrono::milliseconds time);

  std::string& output() { return output_; }
  bool flush();

  bool is_readable() const override;
  bool is_writable() const override { return true; }
  ssize_t read(char* target, size_t size) override;
  ssize_t write(const char* source, size_t size) override;
  void get_remote_ip_and_port(std::string& ip, int& port) const override;
  void get_local_ip_and_port(std::string& ip, int& port) const override;
  socket_t socket() const override { return socket_; }

 private:
  const int socket_;
  std::array<char, 8192> input_{};
  size_t inputStart_ = 0;
  size_t inputEnd_ = 0;
  std::string output_;
};

}  // namespace paperloom::sample
