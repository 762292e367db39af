#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <utility>

#include "paperloom/platform/Events.h"
#include "paperloom/platform/Mutex.h"
#include "paperloom/platform/URLSessionTask.h"

namespace paperloom::internal {

// What a URLSessionTask and its session share.
class TaskCore {
 public:
  TaskCore(URLRequest taskRequest, std::weak_ptr<SessionCore> taskSession,
           URLSessionTask::Completion taskCompletion, URLSessionTask::StoreFilter taskFilter,
           URLSessionTask::Preparation taskPreparation = nullptr)
      : request(std::move(taskRequest)),
        session(std::move(taskSession)),
        completion(std::move(taskCompletion)),
        storeFilter(std::move(taskFilter)),
        preparation(std::move(taskPreparation)) {}

  // Tells that the task begins.
  void tellStarted(bool inBackground) {
    static std::atomic<std::uint64_t> last{0};
    if (!Events::hasListener()) return;
    eventNumber = ++last;
    begun = std::chrono::steady_clock::now();
    Events::tell([&] {
      return event::RequestStarted{eventNumber, request.method, Events::withoutSecrets(request.url),
                                   inBackground};
    });
  }

  URLSessionTaskMetrics metrics() const {
    const MutexLock lock(mutex_);
    return metrics_;
  }
  std::optional<URLError> error() const {
    const MutexLock lock(mutex_);
    return error_;
  }
  std::optional<HTTPURLResponse> response() const {
    const MutexLock lock(mutex_);
    return response_;
  }
  void setOutcome(const URLSessionTaskMetrics& metrics,
                  const std::optional<HTTPURLResponse>& response,
                  const std::optional<URLError>& error) {
    const MutexLock lock(mutex_);
    metrics_ = metrics;
    response_ = response;
    error_ = error;
  }

  std::optional<CachedURLResponse> stored() const {
    const MutexLock lock(mutex_);
    return stored_;
  }
  void setStored(std::optional<CachedURLResponse> stored) {
    const MutexLock lock(mutex_);
    stored_ = std::move(stored);
  }

  // Takes part in the transfer of another task, or with null in its own.
  void follow(std::shared_ptr<const TaskCore> sender) {
    const MutexLock lock(mutex_);
    sender_ = std::move(sender);
  }
  std::int64_t countOfBytesReceived() const {
    const auto sender = this->sender();
    return sender ? sender->bytesReceived : bytesReceived;
  }
  std::int64_t countOfBytesExpected() const {
    const auto sender = this->sender();
    return sender ? sender->bytesExpected : bytesExpected;
  }

  const URLRequest request;
  const std::weak_ptr<SessionCore> session;
  std::atomic<URLSessionTask::State> state{URLSessionTask::State::suspended};
  std::atomic<float> priority{URLSessionTask::defaultPriority};
  std::int64_t maximumBodySize = std::numeric_limits<std::int64_t>::max();  // set before it starts
  // For the listener of events; set before the task is posted, and left at 0 without a listener.
  std::uint64_t eventNumber = 0;
  std::chrono::steady_clock::time_point begun{};
  std::atomic<std::int64_t> bytesReceived{0};  // of its own transfer
  std::atomic<std::int64_t> bytesExpected{-1};

  // Once the task is resumed these belong to the callback queue, which destroys them, since they
  // may hold the last reference to the session. It calls the first two.
  URLSessionTask::Completion completion;
  URLSessionTask::StoreFilter storeFilter;
  URLSessionTask::Preparation preparation;

 private:
  std::shared_ptr<const TaskCore> sender() const {
    const MutexLock lock(mutex_);
    return sender_;
  }

  mutable Mutex mutex_;
  std::shared_ptr<const TaskCore> sender_ PAPERLOOM_GUARDED_BY(mutex_);
  URLSessionTaskMetrics metrics_ PAPERLOOM_GUARDED_BY(mutex_);
  std::optional<HTTPURLResponse> response_ PAPERLOOM_GUARDED_BY(mutex_);
  std::optional<URLError> error_ PAPERLOOM_GUARDED_BY(mutex_);
  std::optional<CachedURLResponse> stored_ PAPERLOOM_GUARDED_BY(mutex_);
};

}  // namespace paperloom::internal
