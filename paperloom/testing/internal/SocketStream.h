#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <optional>
#include <string>

namespace paperloom::sample {

// One client's socket. Output is kept until flush(), so that a reply leaves in one piece and can
// still be shortened.
class SocketStream {
 public:
  explicit SocketStream(int socket) : socket_(socket) {}

  // False when the peer closed, the service stops, or nothing came for that long.
  bool waitForInput(std::chrono::milliseconds limit);

  // Returns early, with false, when the peer closes or the service stops. A negative time waits
  // for just that.
  bool pause(std::chrono::milliseconds time);

  // Nothing when the peer has closed, or is silent in the middle of a request.
  std::optional<char> read();

  std::string& output() { return output_; }
  bool flush();

 private:
  const int socket_;
  std::array<char, 8192> input_{};
  std::size_t inputStart_ = 0;
  std::size_t inputEnd_ = 0;
  std::string output_;
};

}  // namespace paperloom::sample
