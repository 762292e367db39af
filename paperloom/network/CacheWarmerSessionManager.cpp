#include "paperloom/network/CacheWarmerSessionManager.h"

#include <chrono>
#include <utility>

#include "paperloom/network/internal/OfflineCopy.h"
#include "paperloom/network/internal/TaskCounter.h"

namespace paperloom {
namespace {

URLSessionConfiguration sessionConfiguration(std::shared_ptr<URLCache> cache) {
  URLSessionConfiguration configuration;
  configuration.timeoutIntervalForRequest = std::chrono::seconds(20);
  configuration.urlCache = std::move(cache);
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
    : cache_(std::move(cache)),
      taskCounter_(std::make_shared<TaskCounter>()),
      session_(sessionConfiguration(cache_)) {}

CacheWarmerSessionManager::~CacheWarmerSessionManager() = default;

std::int64_t CacheWarmerSessionManager::taskCount() const { return taskCounter_->value(); }

std::shared_ptr<URLSessionTask> CacheWarmerSessionManager::saveToCache(const URL& url,
                                                                       bool forceRefresh,
                                                                       Completion completion) {
  URLRequest request(url);
  auto copy = offlineCopy(*cache_, url);
  if (copy && !forceRefresh) {
    if (completion) completion(cachewarmer::SuccessFromCache{std::move(copy->data)});
    return nullptr;
  }
  if (forceRefresh) request.headers.add("Cache-Control", "no-cache");
  auto task = session_.dataTask(
      std::move(request),
      [completion = std::move(completion), counter = taskCounter_](
          const auto& data, const auto& response, const auto& /*error*/) {
        counter->decrement();
        if (completion) completion(outcome(data, response));
      },
      [copied = copy ? std::optional(std::move(copy->response)) : std::nullopt](
          const HTTPURLResponse& response, const Data&) {
        return isOfflineCopy(response, copied ? &*copied : nullptr);
      });
  taskCounter_->increment();
  task->setPriority(URLSessionTask::lowPriority);
  task->resume();
  return task;
}

}  // namespace paperloom
