#include "paperloom/network/CacheWarmerSessionManager.h"

#include <chrono>
#include <utility>

#include "paperloom/network/internal/OfflineCopy.h"
#include "paperloom/network/internal/TaskCounter.h"
#include "paperloom/platform/Callback.h"
#include "paperloom/platform/FatalError.h"

namespace paperloom {
namespace {

URLSessionConfiguration sessionConfiguration(std::shared_ptr<URLCache> cache) {
  URLSessionConfiguration configuration;
  configuration.timeoutIntervalForRequest = std::chrono::seconds(20);
  configuration.urlCache = std::move(cache);
  return configuration;
}

URLSessionConfiguration withOneConnection(URLSessionConfiguration configuration) {
  configuration.httpMaximumConnectionsPerHost = 1;
  return configuration;
}

CacheWarmerRequestResult outcome(const std::optional<Data>& data,
                                 const std::optional<HTTPURLResponse>& response) {
  if (!response) return cachewarmer::NetworkError{};
  if (!isOfflineCopy(*response)) return cachewarmer::FailedStatusCode{response->statusCode};
  return cachewarmer::Success{data};
}

}  // namespace

CacheWarmerSessionManager::CacheWarmerSessionManager(std::shared_ptr<URLCache> cache)
    : CacheWarmerSessionManager(sessionConfiguration(std::move(cache))) {}

CacheWarmerSessionManager::CacheWarmerSessionManager(URLSessionConfiguration configuration)
    : cache_(required(configuration.urlCache, "a cache warmer needs a cache")),
      taskCounter_(std::make_shared<TaskCounter>()),
      session_(withOneConnection(std::move(configuration))) {}

CacheWarmerSessionManager::~CacheWarmerSessionManager() = default;

std::int64_t CacheWarmerSessionManager::taskCount() const { return taskCounter_->value(); }

std::shared_ptr<URLSessionTask> CacheWarmerSessionManager::saveToCache(const URL& url,
                                                                       bool forceRefresh,
                                                                       Completion completion) {
  URLRequest request = session_.withDefaultHeaders(URLRequest(url));
  if (forceRefresh) {
    request.headers.add("Cache-Control", "no-cache");
  } else if (auto copy = offlineCopy(*cache_, request)) {
    call(completion, cachewarmer::SuccessFromCache{std::move(copy->data)});
    return nullptr;
  } else {
    // What there is has just been looked at, and does not count.
    request.cachePolicy = URLRequestCachePolicy::reloadIgnoringLocalCacheData;
  }
  // Until it has finished; the filter asks it for the copy.
  auto own = std::make_shared<std::shared_ptr<URLSessionTask>>();
  auto task = session_.dataTask(
      std::move(request),
      [own, completion = std::move(completion), counter = taskCounter_](
          const auto& data, const auto& response, const auto& /*error*/) {
        own->reset();
        counter->decrement();
        if (completion) completion(outcome(data, response));
      },
      [own](const HTTPURLResponse& response, const Data&) {
        const auto copy = *own ? (*own)->storedResponse() : std::nullopt;
        const bool counts = copy && isOfflineCopy(copy->response);
        return isOfflineCopy(response, counts ? &copy->response : nullptr);
      });
  *own = task;
  taskCounter_->increment();
  task->setPriority(URLSessionTask::lowPriority);
  task->resume();
  return task;
}

}  // namespace paperloom
