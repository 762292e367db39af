#include "paperloom/platform/internal/caching/StoredHops.h"

#include <utility>

#include "paperloom/platform/internal/http/RequestRules.h"

namespace paperloom::internal {
namespace {

std::optional<RedirectTarget> targetOf(const StoredHop& hop) {
  if (!hop.stored || !hop.request.followsRedirects) return std::nullopt;
  return redirectTarget(hop.request, hop.stored->response);
}

}  // namespace

StoredHops lookUpHops(const URLCache& cache, URLRequest request) {
  StoredHops hops;
  while (hops.size() <= maximumRedirects) {
    auto stored = cache.cachedResponse(request);
    hops.push_back({std::move(request), std::move(stored)});
    auto target = targetOf(hops.back());
    if (!target || !target->request) break;
    request = *std::move(target->request);
  }
  return hops;
}

std::optional<CachedURLResponse> endOf(const StoredHops& hops) {
  // Refused, or one too many: a redirect is no copy of what it leads to.
  if (hops.empty() || targetOf(hops.back())) return std::nullopt;
  return hops.back().stored;
}

}  // namespace paperloom::internal
