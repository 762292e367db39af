#pragma once

#include <memory>

#include "paperloom/network/CacheWarmerSessionManager.h"
#include "paperloom/network/LatestDateStore.h"
#include "paperloom/platform/Export.h"

namespace paperloom {

// Fills a URL cache ahead of time, so that its documents can be read offline.
class PAPERLOOM_EXPORT CacheWarmerDataCoordinatorProtocol {
 public:
  using Completion = CacheWarmerSessionManager::Completion;

  virtual ~CacheWarmerDataCoordinatorProtocol() = default;

  // Makes sure that a response for `url` is in the cache: see
  // CacheWarmerSessionManager, also for the thread of the completion.
  virtual std::shared_ptr<URLSessionTask> saveToCache(const URL& url, bool forceRefresh,
                                                      Completion completion) = 0;
};

// The warmer over a session of its own; every answer fresh from the network is recorded as the
// latest request time before it is passed on.
class PAPERLOOM_EXPORT CacheWarmerDataCoordinator final
    : public CacheWarmerDataCoordinatorProtocol {
 public:
  // Records in LatestDateStore::shared(). A null cache stops the program.
  explicit CacheWarmerDataCoordinator(std::shared_ptr<URLCache> cacheToWarm);
  // Over a session of the host's own making: see CacheWarmerSessionManager.
  explicit CacheWarmerDataCoordinator(URLSessionConfiguration configuration);
  // `dates` must outlive the coordinator.
  CacheWarmerDataCoordinator(URLSessionConfiguration configuration, LatestDateStore& dates);
  CacheWarmerDataCoordinator(std::shared_ptr<URLCache> cacheToWarm, LatestDateStore& dates);

  std::shared_ptr<URLSessionTask> saveToCache(const URL& url, bool forceRefresh,
                                              Completion completion) override;

  const std::shared_ptr<URLCache>& cache() const { return cache_; }
  const CacheWarmerSessionManager& sessionManager() const { return sessionManager_; }

 private:
  std::shared_ptr<URLCache> cache_;
  LatestDateStore* dates_ = nullptr;  // null for the shared one
  CacheWarmerSessionManager sessionManager_;
};

}  // namespace paperloom
