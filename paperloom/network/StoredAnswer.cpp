#include "paperloom/network/internal/StoredAnswer.h"

#include "paperloom/platform/internal/RequestRules.h"

namespace paperloom {

std::optional<CachedURLResponse> storedAnswer(const URLCache& cache, const URL& url) {
  std::optional<URLRequest> request(url);
  for (int hops = 0; request && hops <= internal::maximumRedirects; ++hops) {
    auto stored = cache.cachedResponse(*request);
    if (!stored) return std::nullopt;
    auto target = internal::redirectTarget(*request, stored->response);
    if (!target) return stored;
    request = std::move(target->request);
  }
  return std::nullopt;
}

}  // namespace paperloom
