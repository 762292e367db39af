#pragma once

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
  const char* reasonNotKept = nullptr;  // of an answer from the network, for a cache that is there
  std::optional<Refresh> refresh{};
};

// Asks the task's store filter about the fresh answer, which joins the writes or is left out. On
// the callback queue.
void judge(const TaskCore& task, Delivery& delivery);

// Tells the listener of events what has become of the answer that was to be kept; `cache` is asked.
void tellWhatWasKept(const URLCache& cache, const std::vector<URLCache::Change>& writes);

// Calls the completion, once the writes have been made; a task that was cancelled in the meantime
// gets the cancellation instead of its answer. On the callback queue, once a task.
void complete(TaskCore& task, Delivery delivery);

}  // namespace paperloom::internal
