#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "paperloom/testing/ReceivedRequest.h"

namespace paperloom::sample {

struct HttpRequest : ReceivedRequest {
  std::string path;                               // percent-decoded
  std::multimap<std::string, std::string> query;  // percent-decoded
  bool acceptsGzip = false;
};

struct HttpReply {
  // How much of the reply reaches the client. After anything but `whole` the connection closes.
  enum class Delivery { whole, cut, silent, hangUp };

  int status = 200;
  std::vector<std::pair<std::string, std::string>> headers;
  std::string contentType = "application/json";
  std::string body;

  std::chrono::milliseconds delay{0};  // before the first byte
  Delivery delivery = Delivery::whole;
  std::size_t cutBodyAt = 0;
  bool thenGoAway = false;  // stop listening and close every connection once this is sent
};

// An HTTP/1.1 server on 127.0.0.1 that hands every request to one handler, on one thread a
// connection. JSON bodies are compressed for clients that accept gzip.
class HttpServer {
 public:
  using Handler = std::function<HttpReply(const HttpRequest&)>;  // called on many threads

  explicit HttpServer(Handler handler);
  ~HttpServer();  // stops

  // Returns what went wrong as a sentence, or nothing. Requests are taken in only after `serve()`.
  std::optional<std::string> listen(int port);
  void serve();
  int port() const;

  void stop();

 private:
  class Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace paperloom::sample
