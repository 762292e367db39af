#pragma once

#include <optional>

#include "paperloom/platform/URLCache.h"

namespace paperloom {

// The stored answer that a GET of `url` ends at, whatever its freshness, by way of stored redirects
// as a session follows them. Nothing when a redirect leads to what is not stored.
std::optional<CachedURLResponse> storedAnswer(const URLCache& cache, const URL& url);

// From now on the answer stored for `url` is asked after before it is used, however fresh it calls
// itself: its document could not be read. It stays for those who can read it.
void demandValidation(URLCache& cache, const URL& url);

// Whether nothing is stored for the answer's URL, or something of the same media type: a captive
// portal's page comes under the URL of the document that it hides, but hardly as its type.
bool mayReplaceStoredAnswer(const URLCache& cache, const HTTPURLResponse& response);

}  // namespace paperloom
