#include "paperloom/platform/CacheExplanation.h"

#include "paperloom/platform/internal/caching/CachePlan.h"

namespace paperloom {
namespace {

CacheExplanation::Outcome outcome(internal::CachePlan::Action action) {
  using Action = internal::CachePlan::Action;
  switch (action) {
    case Action::serveStored:
      return CacheExplanation::Outcome::answeredFromCache;
    case Action::revalidate:
      return CacheExplanation::Outcome::revalidated;
    case Action::send:
      return CacheExplanation::Outcome::sent;
    case Action::gatewayTimeout:
    case Action::unavailable:
      return CacheExplanation::Outcome::refused;
  }
  return CacheExplanation::Outcome::sent;
}

}  // namespace

// The very plan that a session would follow: the explanation cannot disagree with it.
CacheExplanation explainCaching(const URLRequest& request,
                                const std::optional<CachedURLResponse>& stored, Date now) {
  internal::CachePlan plan = internal::planRequest(request, stored ? &*stored : nullptr, now);
  return {.outcome = outcome(plan.action),
          .stale = plan.stale,
          .reason = std::move(plan.reason),
          .where = std::string(plan.where),
          .age = plan.age,
          .freshnessLifetime = plan.lifetime};
}

}  // namespace paperloom
