#pragma once

#include <optional>
#include <utility>
#include <vector>

#include "paperloom/platform/URLCache.h"

namespace paperloom::internal {

// What a cache holds for a request and for what its stored redirects lead to, a hop each.
struct StoredHop {
  URLRequest request;
  std::optional<CachedURLResponse> stored;
};
using StoredHops = std::vector<StoredHop>;

// Looks a request up, and what the redirects among what it finds lead to: as far as something is
// stored, and no farther than a session follows them.
class HopsLookUp {
 public:
  explicit HopsLookUp(URLRequest request) : next_(std::move(request)) {}

  // Goes as far as the cache can tell at once. True when nothing is left to be looked up.
  bool goOnAtOnce(const URLCache& cache);
  // To the end. May wait for the disk.
  void goOn(const URLCache& cache);
  // What has been found: at the end at least one hop.
  StoredHops take() { return std::move(hops_); }

 private:
  void add(std::optional<CachedURLResponse> stored);

  StoredHops hops_;
  std::optional<URLRequest> next_;
};

// What the hops end at; nothing where that is not stored, or is one more redirect to follow.
std::optional<CachedURLResponse> endOf(const StoredHops& hops);

}  // namespace paperloom::internal
