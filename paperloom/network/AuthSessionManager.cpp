#include "paperloom/network/AuthSessionManager.h"

#include <chrono>
#include <utility>

#include "paperloom/network/internal/ClampedTaskCounter.h"
#include "paperloom/platform/Callback.h"
#include "paperloom/platform/DebugLog.h"

namespace paperloom {
namespace {

constexpr std::int64_t cacheCapacity = 10'485'760;

std::string printedDescription(const ParserError& error) {
  if (const auto* decoder = std::get_if<JSONError>(&error)) return decoder->localizedDescription;
  const auto& own = std::get<PaperloomError>(error);
  return std::string(caseName(own.which())).append("(details: \"") + own.details() + "\")";
}

template <class Parser>
RequestResult<std::any> judgePost(int statusCode, const std::optional<Data>& data,
                                  const Parser& parser) {
  if (statusCode < 200 || statusCode > 202) return request::FailedStatusCode{statusCode};
  if (!data || data->empty()) return request::ParsingError{"no data was returned"};
  auto parsed = parser(*data);
  if (parsed) return request::Success<std::any>{std::move(*parsed)};
  std::string description = "parsing failed with error " + printedDescription(parsed.error());
  DebugLog::write(description);
  return request::ParsingError{std::move(description)};
}

}  // namespace

URLSessionConfiguration AuthSessionManager::defaultConfiguration() {
  URLSessionConfiguration configuration;
  configuration.timeoutIntervalForRequest = std::chrono::seconds(20);
  configuration.urlCache =
      std::make_shared<URLCache>(cacheCapacity, cacheCapacity, "auth-url-cache");
  return configuration;
}

AuthSessionManager::AuthSessionManager() : AuthSessionManager(defaultConfiguration()) {}

AuthSessionManager::AuthSessionManager(URLSessionConfiguration configuration)
    : taskCounter_(std::make_shared<ClampedTaskCounter>()), session_(std::move(configuration)) {}

AuthSessionManager::~AuthSessionManager() = default;

std::int64_t AuthSessionManager::taskCount() const { return taskCounter_->value(); }

void AuthSessionManager::start(URLRequest request, URLSession::Completion completion) {
  // What another origin says is no answer of the identity service.
  request.staysAtOrigin = true;
  // The answer to a POST holds tokens, and no server may have them written to the cache.
  const bool mayBeStored = request.method != "POST";
  const auto task = session_.dataTask(
      std::move(request),
      [completion = std::move(completion), counter = taskCounter_](
          const auto& data, const auto& response, const auto& error) {
        counter->decrement();
        completion(data, response, error);
      },
      [mayBeStored](const HTTPURLResponse&, const Data&) { return mayBeStored; });
  taskCounter_->increment();
  task->resume();
}

void AuthSessionManager::postData(Data body, const URL& url, ErasedParser parser,
                                  ErasedCompletion completion) {
  URLRequest request(url);
  request.method = "POST";
  request.headers.set("Content-Type", "application/json");
  request.headers.set("Accept", "application/json");
  request.body = std::move(body);
  start(std::move(request), [parser = std::move(parser), completion = std::move(completion)](
                                const auto& data, const auto& response, const auto& error) {
    // An answer that comes with an error is reported twice; callers count on the second.
    if (error) completion(request::NetworkError{});
    if (response) completion(judgePost(response->statusCode, data, parser));
  });
}

void AuthSessionManager::getRequest(const URL& url,
                                    const std::map<std::string, std::string>& headers,
                                    std::function<void(RequestResult<Nothing>)> completion) {
  URLRequest request(url);
  for (const auto& [name, value] : headers) request.headers.set(name, value);
  start(std::move(request),
        [completion = std::move(completion)](const auto&, const auto& response, const auto& error) {
          if (error) call(completion, request::NetworkError{});
          if (!response) return;
          if (response->statusCode == 200) {
            call(completion, request::Success<Nothing>{});
          } else {
            call(completion, request::FailedStatusCode{response->statusCode});
          }
        });
}

}  // namespace paperloom
