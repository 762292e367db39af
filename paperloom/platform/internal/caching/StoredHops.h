#pragma once

#include <optional>
#include <vector>

#include "paperloom/platform/URLCache.h"

namespace paperloom::internal {

// What a cache holds for a request and for what its stored redirects lead to, a hop each.
struct StoredHop {
  URLRequest request;
  std::optional<CachedURLResponse> stored;
};
using StoredHops = std::vector<StoredHop>;

// Looks the request up, and what the redirects among what it finds lead to: as far as something is
// stored, and no farther than a session follows them. At least one hop. May wait for the disk.
StoredHops lookUpHops(const URLCache& cache, URLRequest request);

// What the hops end at; nothing where that is not stored, or is one more redirect to follow.
std::optional<CachedURLResponse> endOf(const StoredHops& hops);

}  // namespace paperloom::internal
