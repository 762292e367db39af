#include "paperloom/network/ContentSessionManager.h"

#include <chrono>
#include <string>
#include <utility>

#include "paperloom/network/internal/StoredAnswer.h"
#include "paperloom/network/internal/TaskCounter.h"

namespace paperloom {
namespace {

URLSessionConfiguration sessionConfiguration(std::shared_ptr<URLCache> cache) {
  URLSessionConfiguration configuration;
  configuration.timeoutIntervalForRequest = std::chrono::seconds(20);
  configuration.urlCache = std::move(cache);
  return configuration;
}

bool isUsable(const HTTPURLResponse& response) {
  return response.statusCode > 199 && response.statusCode < 400;
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
  std::optional<Data> cachedBody;
  std::optional<tl::expected<std::any, ParserError>> parsedFresh;
  std::shared_ptr<URLSessionTask> task;  // until it has finished
  std::shared_ptr<const TaskObserver> observer;
  std::shared_ptr<URLCache> cache;

  bool isWorthStoring(const HTTPURLResponse& response, const Data& data) {
    if (!isUsable(response)) return false;
    parsedFresh = parser(data);
    return parsedFresh->has_value();
  }

  void finish(const std::optional<Data>& data, const std::optional<HTTPURLResponse>& response,
              const std::optional<URLError>& error) {
    const bool fromCache = !(response && isUsable(*response));
    const auto finished = std::exchange(task, nullptr);
    if (observer && *observer) (*observer)(*finished, fromCache);
    const std::optional<Data>& body = fromCache ? cachedBody : data;
    if (!body) {
      completion(tl::unexpected(networkError("no network error", error)), fromCache);
      return;
    }
    auto parsed = !fromCache && parsedFresh ? std::move(*parsedFresh) : parser(*body);
    if (parsed) {
      completion(std::move(*parsed), fromCache);
      return;
    }
    const bool wasStored = finished->metrics().source != URLSessionTaskMetrics::Source::network;
    if (!fromCache && wasStored) demandValidation(*cache, response->url);
    completion(tl::unexpected(asPaperloomError(std::move(parsed.error()))), fromCache);
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

void ContentSessionManager::setTaskObserver(TaskObserver observer) {
  taskObserver_ = std::make_shared<const TaskObserver>(std::move(observer));
}

std::shared_ptr<URLSessionTask> ContentSessionManager::getData(const URL& url, ErasedParser parser,
                                                               ErasedCompletion completion) {
  const URLRequest request(url);
  auto get = std::make_shared<Get>();
  get->parser = std::move(parser);
  get->completion = std::move(completion);
  get->observer = taskObserver_;
  get->cache = contentSessionCache_;
  // Before the request is sent: what this very request stores must not be its own fallback.
  if (auto cached = storedAnswer(*contentSessionCache_, url)) {
    get->cachedBody = std::move(cached->data);
  }
  auto task = session_.dataTask(
      request,
      [get, counter = taskCounter_](const auto& data, const auto& response, const auto& error) {
        counter->decrement();
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
