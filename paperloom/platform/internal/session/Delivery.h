#pragma once

#include <memory>
#include <optional>
#include <vector>

#include "paperloom/platform/internal/session/CacheThreads.h"
#include "paperloom/platform/internal/session/TaskCore.h"

namespace paperloom::internal {

// A request to be sent in the background, for the cache's sake, with the copy that it validates.
struct Refresh {
  URLRequest request;
  CachedURLResponse stored;
};

// The tasks that one answer is for; none when all have been cancelled before.
using Receivers = std::vector<std::shared_ptr<TaskCore>>;

// How a task ends: what changes in the cache, and what its completion receives after that.
struct Delivery {
  std::optional<Data> data{};
  std::optional<HTTPURLResponse> response{};
  std::optional<URLError> error{};
  URLSessionTaskMetrics metrics{};
  std::vector<URLCache::Change> writes{};  // made whatever became of the task
  std::optional<URLCache::Change>
      freshAnswer{};  // made when the task's store filter has accepted it
  std::vector<URLCache::Change> withFreshAnswer{};  // made with it or not at all
  bool mayBeShared = true;                          // with the tasks of equal requests
  const char* reasonNotKept = nullptr;  // of an answer from the network, for a cache that is there
  std::optional<Refresh> refresh{};
};

// Asks the store filters about the fresh answer, until one accepts it: it joins the writes or is
// left out. On the callback queue.
void judge(const Receivers& receivers, Delivery& delivery);

// Tells the listener of events what has become of the answer that was to be kept; `cache` is asked.
void tellWhatWasKept(const URLCache& cache, const std::vector<URLCache::Change>& writes);

// Calls the completion, once the writes have been made; a task that was cancelled in the meantime
// gets the cancellation instead of its answer. On the callback queue, once a task.
void complete(TaskCore& task, Delivery delivery);

}  // namespace paperloom::internal
