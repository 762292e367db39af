#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace paperloom::bench {

// One of the HTTP clients that are compared. Made, used and destroyed on one thread.
class HTTPClient {
 public:
  virtual ~HTTPClient() = default;

  // Gets all of them, `width` at a time, each started when another has been answered; the bytes of
  // all bodies.
  virtual std::size_t get(const std::vector<std::string>& urls, int width) = 0;
};

struct ClientOptions {
  std::filesystem::path cacheFolder{};  // empty: no cache
  bool keepsMemory = false;             // beside the disk, where the client knows of such a thing
};

std::unique_ptr<HTTPClient> makeOwnClient(const ClientOptions& options);
std::unique_ptr<HTTPClient> makeQtClient(const ClientOptions& options);
std::unique_ptr<HTTPClient> makeSoupClient(const ClientOptions& options);

}  // namespace paperloom::bench
