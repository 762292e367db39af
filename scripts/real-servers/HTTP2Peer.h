#pragma once

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <list>
#include <map>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "paperloom/testing/ScriptedServer.h"

namespace paperloom::servers {

// Frames of HTTP/2 (RFC 9113 section 6).
std::string headersFrame(std::uint32_t stream,
                         const std::vector<std::pair<std::string, std::string>>& fields);
std::string dataFrame(std::uint32_t stream, std::string_view bytes, bool endsStream = false);
std::string resetFrame(std::uint32_t stream, std::uint32_t error);
std::string goAwayFrame(std::uint32_t lastStream, std::uint32_t error);

// An https server on a loopback port that speaks HTTP/2 and answers with exactly the frames it is
// told to, however wrong they are.
class HTTP2Peer {
 public:
  struct Request {
    int connection;  // from 1
    int index;       // on its connection, from 1
    std::uint32_t stream;
  };
  struct Reply {
    std::string frames{};
    bool closes = false;
    std::string flood{};  // sent again and again until the client leaves
  };
  using Handler = std::function<Reply(const Request&)>;

  // `identity`: a PEM file with certificate and key.
  HTTP2Peer(const std::filesystem::path& identity, Handler handler);
  ~HTTP2Peer();
  HTTP2Peer(const HTTP2Peer&) = delete;
  HTTP2Peer& operator=(const HTTP2Peer&) = delete;

  URL url() const { return *URL::parse("https://" + listener_.origin + "/"); }
  int requests() const { return requests_; }

 private:
  class Connection;
  void acceptAll();

  const std::filesystem::path identity_;
  const Handler handler_;
  test::Listener listener_;
  std::atomic<int> requests_ = 0;
  std::atomic<bool> stopping_ = false;
  std::list<std::thread> threads_;
  std::thread acceptor_;
};

}  // namespace paperloom::servers
