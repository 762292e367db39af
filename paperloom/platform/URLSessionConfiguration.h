#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "paperloom/platform/HTTPHeaders.h"
#include "paperloom/platform/URL.h"
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

  // What User-Agent begins with, as "ExampleNews/2.1"; the library's own product follows it.
  std::string userAgentProduct;
  // Fields of every request that has none of the name itself, redirects included. To any server go
  // those that say nothing of the user, such as Accept-Language; all others, such as an app's key,
  // only to the origins (scheme, host and port) of the URLs in `defaultHeaderOrigins`. While none
  // is named, a field of that kind makes every request fail: badRequest.
  HTTPHeaders defaultHeaders;
  std::vector<URL> defaultHeaderOrigins;

  // By host: the public keys that its server may have, each as "sha256//" and the base64 of the
  // SHA-256 of the SubjectPublicKeyInfo (`openssl pkey -pubin -outform der | openssl dgst -sha256
  // -binary | base64`). One that fits is enough, beside all that is verified in any case: name the
  // key in use and one or more to fall back on. Looked up for each hop of a redirect, for exactly
  // that host. A host that is named is reached over https alone; one without a key, or with
  // something else in a key's place, is not reached at all. Failures are secureConnectionFailed.
  std::map<std::string, std::vector<std::string>> pinnedPublicKeys;
};

}  // namespace paperloom
