#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>

#include "paperloom/platform/URLCache.h"

namespace paperloom {

// How a session goes about its work; set before it is made.
struct URLSessionConfiguration {
  // Idle time, connecting included: the longest wait without a byte in either direction. The wait
  // for a connection to become free counts for the whole task alone.
  std::chrono::milliseconds timeoutIntervalForRequest = std::chrono::seconds(60);
  // The longest time for a whole task, redirects included.
  std::chrono::milliseconds timeoutIntervalForResource = std::chrono::minutes(10);
  std::shared_ptr<URLCache> urlCache;  // none: nothing is stored and nothing comes from a cache
  int httpMaximumConnectionsPerHost = 6;
  // The largest body handed over, in bytes after decoding.
  std::int64_t maximumBodySize = std::int64_t{32} * 1024 * 1024;
  // A file of PEM certificates trusted beside the system's. Verification itself is always on.
  std::filesystem::path additionalCertificateAuthorities;
  // A proxy URL, for every host. Without one the variables http_proxy, https_proxy, all_proxy and
  // no_proxy count.
  std::string proxy;
};

}  // namespace paperloom
