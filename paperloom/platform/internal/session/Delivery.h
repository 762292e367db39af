#pragma once

#include <optional>
#include <vector>

#include "paperloom/platform/internal/session/TaskCore.h"

namespace paperloom::internal {

// One change of the cache: `entry` kept for `request`, or what is kept for it removed.
struct CacheWrite {
  URLRequest request;
  std::optional<CachedURLResponse> entry;
};

// How a task ends: what its completion receives, and what changes in the cache before that.
struct Delivery {
  std::optional<Data> data{};
  std::optional<HTTPURLResponse> response{};
  std::optional<URLError> error{};
  URLSessionTaskMetrics metrics{};
  std::vector<CacheWrite> writes{};         // made whatever became of the task
  std::optional<CacheWrite> freshAnswer{};  // made when the task's store filter has accepted it
  std::optional<URLRequest> refresh{};      // to be sent in the background, for the cache's sake
};

// Makes the writes, asks the store filter and calls the completion; a task that was cancelled in
// the meantime gets the cancellation instead of its answer. On the callback queue, once a task.
void complete(TaskCore& task, Delivery delivery, URLCache* cache);

}  // namespace paperloom::internal
