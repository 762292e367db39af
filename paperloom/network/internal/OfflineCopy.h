#pragma once

#include <optional>

#include "paperloom/platform/URLCache.h"

// What stands in for a document while there is no network: the rule that the content manager, the
// warmer and the fall-back go by.
namespace paperloom {

// Whether an answer is good for it: its status is 200 to 399 and, in place of a copy, its kind is
// one that fits. A media type may change for many good reasons; but a web page in place of anything
// else is what captive portals send, and bytes in a coding that is not known here are of no use
// where there were some that could be read.
bool isOfflineCopy(const HTTPURLResponse& answer, const HTTPURLResponse* inPlaceOf = nullptr);

// Whether an answer says that it is one: a captive portal's are.
bool isWebPage(const HTTPHeaders& headers);

// The copy that a GET of `url` ends at, whatever its freshness, by way of stored redirects as a
// session follows them. Nothing when a redirect leads to what is not stored.
std::optional<CachedURLResponse> offlineCopy(const URLCache& cache, const URLRequest& request);

}  // namespace paperloom
