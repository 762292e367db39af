#include "paperloom/platform/URLCache.h"

#include <utility>

#include "paperloom/platform/internal/cache/URLCacheStore.h"
#include "paperloom/platform/internal/caching/StoredHops.h"

namespace paperloom {

URLCache::URLCache() : URLCache(std::int64_t{4} * 1024 * 1024, 0, {}) {}

URLCache::URLCache(std::int64_t memoryCapacity, std::int64_t diskCapacity,
                   std::filesystem::path diskPath)
    : store_(std::make_unique<internal::URLCacheStore>(memoryCapacity, diskCapacity,
                                                       std::move(diskPath))) {}

URLCache::~URLCache() = default;

std::optional<CachedURLResponse> URLCache::cachedResponse(const URLRequest& request) const {
  return store_->find(request);
}

std::optional<URLCache::Known> URLCache::cachedResponseAtOnce(const URLRequest& request) const {
  return store_->findAtOnce(request);
}

std::optional<CachedURLResponse> URLCache::cachedResponseThroughRedirects(
    URLRequest request) const {
  internal::HopsLookUp lookUp(std::move(request));
  lookUp.goOn(*this);
  return internal::endOf(lookUp.take());
}

void URLCache::storeCachedResponse(const CachedURLResponse& response, const URLRequest& request) {
  store_->apply({{request, response}});
  store_->shortenLog();
}

void URLCache::removeCachedResponse(const URLRequest& request) {
  store_->apply({{request, std::nullopt}});
  store_->shortenLog();
}

void URLCache::apply(std::vector<Change> changes) { store_->apply(std::move(changes)); }

void URLCache::settle() { store_->settle(); }

void URLCache::removeAllCachedResponses() { store_->removeAll(); }

std::int64_t URLCache::memoryCapacity() const { return store_->memory().capacity(); }

std::int64_t URLCache::diskCapacity() const { return store_->diskCapacity(); }

void URLCache::setMemoryCapacity(std::int64_t bytes) { store_->memory().setCapacity(bytes); }

void URLCache::setDiskCapacity(std::int64_t bytes) { store_->setDiskCapacity(bytes); }

std::int64_t URLCache::currentMemoryUsage() const { return store_->memory().usage(); }

std::int64_t URLCache::currentDiskUsage() const { return store_->diskUsage(); }

std::filesystem::path URLCache::diskFile() const { return store_->diskFile(); }

URLCache::Statistics URLCache::statistics() const { return store_->statistics(); }

std::vector<URLCache::Entry> URLCache::entries() const { return store_->entries(); }

}  // namespace paperloom
