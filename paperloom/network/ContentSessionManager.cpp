#include "paperloom/network/ContentSessionManager.h"

#include <algorithm>
#include <chrono>
#include <string>
#include <utility>

#include "paperloom/network/internal/OfflineCopy.h"
#include "paperloom/network/internal/TaskCounter.h"

namespace paperloom {
namespace {

URLSessionConfiguration sessionConfiguration(std::shared_ptr<URLCache> cache) {
  URLSessionConfiguration configuration;
  configuration.timeoutIntervalForRequest = std::chrono::seconds(20);
  configuration.urlCache = std::move(cache);
  return configuration;
}

Provenance::Source sourceOf(const URLSessionTaskMetrics& metrics) {
  switch (metrics.source) {
    case URLSessionTaskMetrics::Source::network:
      return Provenance::Source::network;
    case URLSessionTaskMetrics::Source::cache:
      return Provenance::Source::cache;
    case URLSessionTaskMetrics::Source::revalidated:
      return Provenance::Source::revalidated;
    case URLSessionTaskMetrics::Source::stale:
      return Provenance::Source::stale;
  }
  return {};
}

PaperloomError networkError(std::string details, const std::optional<URLError>& error) {
  if (error) details.append(" : ").append(error->localizedDescription);
  return PaperloomError::networkError(std::move(details));
}

}  // namespace

// One GET from its start to its completion. The store filter and the completion run one after the
// other on the callback queue, so what the filter parsed need not be parsed again.
struct ContentSessionManager::Get {
  ErasedParser parser;
  ErasedCompletion completion;
  std::shared_ptr<URLCache> cache;
  std::shared_ptr<TaskCounter> counter;
  std::optional<CachedURLResponse> copy;  // stored before the request
  std::optional<tl::expected<std::any, ParserError>> parsedFresh;
  std::shared_ptr<URLSessionTask> task;  // until it has finished
  bool inFlight = true;

  // The count falls before a parser runs.
  void land() {
    if (std::exchange(inFlight, false)) counter->decrement();
  }

  bool isWorthStoring(const HTTPURLResponse& response, const Data& data) {
    // Behind an answer that has been given: a parse has effects that belong to an answer.
    if (!task) return isOfflineCopy(response, copy ? &copy->response : nullptr);
    land();
    if (!isOfflineCopy(response)) return false;
    parsedFresh = parser(data);
    return parsedFresh->has_value();
  }

  void finish(const std::optional<Data>& data, const std::optional<HTTPURLResponse>& response,
              const std::optional<URLError>& error) {
    land();
    const URLSessionTaskMetrics metrics = std::exchange(task, nullptr)->metrics();
    if (!response || !isOfflineCopy(*response)) return fallBack(error);
    const Provenance provenance{sourceOf(metrics), metrics.serverFailed, metrics.age,
                                metrics.fetchedAt};
    if (!data)
      return completion(tl::unexpected(networkError("no network error", error)), provenance);
    auto parsed = parsedFresh ? std::move(*parsedFresh) : parser(*data);
    if (!parsed && provenance.source != Provenance::Source::network) {
      demandValidation(*cache, response->url);
    }
    answer(std::move(parsed), provenance);
  }

  void fallBack(const std::optional<URLError>& error) {
    Provenance provenance{.source = Provenance::Source::cache, .fromCache = true};
    if (!copy)
      return completion(tl::unexpected(networkError("no network error", error)), provenance);
    const auto age = std::chrono::floor<std::chrono::seconds>(currentDate() - copy->responseTime);
    provenance.age = std::max(age, std::chrono::seconds(0));
    provenance.fetchedAt = copy->responseTime;
    answer(parser(copy->data), provenance);
  }

  void answer(tl::expected<std::any, ParserError> parsed, const Provenance& provenance) {
    if (parsed) return completion(std::move(*parsed), provenance);
    completion(tl::unexpected(asPaperloomError(std::move(parsed.error()))), provenance);
  }
};

ContentSessionManager::ContentSessionManager()
    : ContentSessionManager(std::make_shared<URLCache>(8 * megabyte, 100 * megabyte, "url-cache")) {
}

ContentSessionManager::ContentSessionManager(std::shared_ptr<URLCache> cache)
    : contentSessionCache_(std::move(cache)),
      taskCounter_(std::make_shared<TaskCounter>()),
      session_(sessionConfiguration(contentSessionCache_)) {}

ContentSessionManager::~ContentSessionManager() = default;

std::int64_t ContentSessionManager::taskCount() const { return taskCounter_->value(); }

std::optional<CachedURLResponse> ContentSessionManager::offlineCopy(const URL& url) const {
  return paperloom::offlineCopy(*contentSessionCache_, url);
}

std::shared_ptr<URLSessionTask> ContentSessionManager::getData(const URL& url, ErasedParser parser,
                                                               ErasedCompletion completion) {
  auto get = std::make_shared<Get>();
  get->parser = std::move(parser);
  get->completion = std::move(completion);
  get->cache = contentSessionCache_;
  get->counter = taskCounter_;
  // Before the request is sent: what this very request stores must not be its own fallback.
  get->copy = offlineCopy(url);
  auto task = session_.dataTask(
      URLRequest(url),
      [get](const auto& data, const auto& response, const auto& error) {
        get->finish(data, response, error);
      },
      [get](const HTTPURLResponse& response, const Data& data) {
        return get->isWorthStoring(response, data);
      });
  get->task = task;
  taskCounter_->increment();
  task->resume();
  return task;
}

std::shared_ptr<URLSessionTask> ContentSessionManager::postJSONData(
    const URL& url, Data body, std::function<void(PostRequestResult)> completion) {
  URLRequest request(url);
  request.method = "POST";
  request.headers.add("Content-Type", "application/json");
  request.headers.add("Accept", "application/json");
  request.body = std::move(body);
  request.staysAtOrigin = true;  // what another origin says is no answer to it
  const auto neverStored = [](const HTTPURLResponse&, const Data&) {
    return false;  // the answer may hold secrets
  };
  auto task = session_.dataTask(
      std::move(request),
      [completion = std::move(completion), counter = taskCounter_](
          const auto& data, const auto& response, const auto& error) {
        counter->decrement();
        if (!completion) return;
        if (response && data && !error) {
          completion(PostSuccess{response->statusCode, *data});
        } else {
          completion(networkError("Error:", error));
        }
      },
      neverStored);
  taskCounter_->increment();
  task->resume();
  return task;
}

}  // namespace paperloom
