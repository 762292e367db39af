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

bool HopsLookUp::goOnAtOnce(const URLCache& cache) {
  while (next_) {
    auto known = cache.cachedResponseAtOnce(*next_);
    if (!known) return false;
    add(std::move(known->response));
  }
  return true;
}

void HopsLookUp::goOn(const URLCache& cache) {
  while (next_) add(cache.cachedResponse(*next_));
}

void HopsLookUp::add(std::optional<CachedURLResponse> stored) {
  hops_.push_back({*std::exchange(next_, std::nullopt), std::move(stored)});
  if (hops_.size() > maximumRedirects) return;
  if (auto target = targetOf(hops_.back())) next_ = std::move(target->request);
}

std::optional<CachedURLResponse> endOf(const StoredHops& hops) {
  // Refused, or one too many: a redirect is no copy of what it leads to.
  if (hops.empty() || targetOf(hops.back())) return std::nullopt;
  return hops.back().stored;
}

}  // namespace paperloom::internal
