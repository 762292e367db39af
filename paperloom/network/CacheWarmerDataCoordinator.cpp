#include "paperloom/network/CacheWarmerDataCoordinator.h"

#include <utility>
#include <variant>

#include "paperloom/network/internal/RecordFetch.h"

namespace paperloom {

CacheWarmerDataCoordinator::CacheWarmerDataCoordinator(std::shared_ptr<URLCache> cacheToWarm)
    : cache_(std::move(cacheToWarm)), sessionManager_(cache_) {}

CacheWarmerDataCoordinator::CacheWarmerDataCoordinator(URLSessionConfiguration configuration)
    : cache_(configuration.urlCache), sessionManager_(std::move(configuration)) {}

CacheWarmerDataCoordinator::CacheWarmerDataCoordinator(URLSessionConfiguration configuration,
                                                       LatestDateStore& dates)
    : cache_(configuration.urlCache), dates_(&dates), sessionManager_(std::move(configuration)) {}

CacheWarmerDataCoordinator::CacheWarmerDataCoordinator(std::shared_ptr<URLCache> cacheToWarm,
                                                       LatestDateStore& dates)
    : cache_(std::move(cacheToWarm)), dates_(&dates), sessionManager_(cache_) {}

std::shared_ptr<URLSessionTask> CacheWarmerDataCoordinator::saveToCache(const URL& url,
                                                                        bool forceRefresh,
                                                                        Completion completion) {
  return sessionManager_.saveToCache(
      url, forceRefresh,
      [dates = dates_, completion = std::move(completion)](CacheWarmerRequestResult result) {
        if (std::holds_alternative<cachewarmer::Success>(result)) recordFetch(dates);
        if (completion) completion(std::move(result));
      });
}

}  // namespace paperloom
