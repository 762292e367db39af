#pragma once

#include <optional>

#include "paperloom/platform/URLCache.h"

namespace paperloom {

// The stored answer that a GET of `url` ends at, whatever its freshness, by way of stored redirects
// as a session follows them. Nothing when a redirect leads to what is not stored.
std::optional<CachedURLResponse> storedAnswer(const URLCache& cache, const URL& url);

}  // namespace paperloom
