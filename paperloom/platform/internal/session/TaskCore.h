#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <utility>

#include "paperloom/platform/URLSession.h"

namespace paperloom::internal {

// What a URLSessionTask and its session share.
class TaskCore {
 public:
  TaskCore(URLRequest taskRequest, std::weak_ptr<SessionCore> taskSession,
           URLSession::Completion taskCompletion, URLSession::StoreFilter taskFilter)
      : request(std::move(taskRequest)),
        session(std::move(taskSession)),
        completion(std::move(taskCompletion)),
        storeFilter(std::move(taskFilter)) {}

  URLSessionTaskMetrics metrics() const {
    const std::lock_guard lock(mutex_);
    return metrics_;
  }
  void setMetrics(const URLSessionTaskMetrics& metrics) {
    const std::lock_guard lock(mutex_);
    metrics_ = metrics;
  }

  const URLRequest request;
  const std::weak_ptr<SessionCore> session;
  std::atomic<URLSessionTask::State> state{URLSessionTask::State::suspended};
  std::atomic<float> priority{URLSessionTask::defaultPriority};
  std::atomic<std::int64_t> bytesReceived{0};
  std::atomic<std::int64_t> bytesExpected{-1};

  // Once the task is resumed these belong to the callback queue: it calls them, and it destroys
  // them, since they may hold the last reference to the session.
  URLSession::Completion completion;
  URLSession::StoreFilter storeFilter;

 private:
  mutable std::mutex mutex_;
  URLSessionTaskMetrics metrics_;
};

}  // namespace paperloom::internal
