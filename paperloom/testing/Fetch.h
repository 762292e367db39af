#pragma once

#include <future>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "paperloom/platform/URLSession.h"
#include "paperloom/testing/Waiting.h"

namespace paperloom::test {

// What the completion of a session's task received.
struct Answer {
  std::optional<Data> data;
  std::optional<HTTPURLResponse> response;
  std::optional<URLError> error;
  URLSessionTaskMetrics metrics;

  std::string body() const { return data ? std::string(data->view()) : "no data"; }
  int status() const { return response ? response->statusCode : 0; }
  std::optional<URLError::Code> code() const {
    return error ? std::optional(error->code) : std::nullopt;
  }
  std::string errorText() const { return error ? error->localizedDescription : "no error"; }
};

// A task and its answer to come.
struct Pending {
  std::shared_ptr<URLSessionTask> task;
  std::future<Answer> answer;

  // Waits for the answer, as await() does. Once, on any thread but a callback's.
  Answer get(const char* file = __builtin_FILE(), int line = __builtin_LINE()) {
    const std::string what = "the answer of " + task->originalRequest().url.absoluteString();
    Answer received = await(std::move(answer), what, file, line);
    received.metrics = task->metrics();
    return received;
  }
};

// A task whose answer is waited for, not yet resumed. Any thread.
inline Pending prepare(URLSession& session, URLRequest request,
                       URLSession::StoreFilter filter = nullptr) {
  auto promise = std::make_shared<std::promise<Answer>>();
  auto future = promise->get_future();
  auto task = session.dataTask(
      std::move(request),
      [promise](const auto& data, const auto& response, const auto& error) {
        promise->set_value({data, response, error, {}});
      },
      std::move(filter));
  return {std::move(task), std::move(future)};
}

// The same, resumed. Any thread.
inline Pending start(URLSession& session, URLRequest request,
                     float priority = URLSessionTask::defaultPriority,
                     URLSession::StoreFilter filter = nullptr) {
  Pending pending = prepare(session, std::move(request), std::move(filter));
  pending.task->setPriority(priority);
  pending.task->resume();
  return pending;
}

// The answer to a request. Waits for it, so on any thread but a callback's.
inline Answer fetch(URLSession& session, URLRequest request, const char* file = __builtin_FILE(),
                    int line = __builtin_LINE()) {
  return start(session, std::move(request)).get(file, line);
}

}  // namespace paperloom::test
