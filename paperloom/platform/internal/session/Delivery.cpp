#include "paperloom/platform/internal/session/Delivery.h"

#include <utility>

#include "paperloom/platform/internal/http/RequestRules.h"

namespace paperloom::internal {
namespace {

using State = URLSessionTask::State;

void apply(const CacheWrite& write, URLCache& cache) {
  if (write.entry) {
    cache.storeCachedResponse(*write.entry, write.request);
  } else {
    cache.removeCachedResponse(write.request);
  }
}

}  // namespace

void complete(TaskCore& task, Delivery delivery, URLCache* cache) {
  // They may hold the last reference to the session and have to go on this queue.
  const auto completion = std::move(task.completion);
  const auto storeFilter = std::move(task.storeFilter);
  if (cache != nullptr) {
    for (const CacheWrite& write : delivery.writes) apply(write, *cache);
  }
  if (task.state.exchange(State::completed) == State::canceling) {
    delivery = Delivery{.error = makeError(URLError::Code::cancelled, "cancelled"),
                        .metrics = delivery.metrics};
  }
  if (cache != nullptr && delivery.freshAnswer &&
      (!storeFilter || storeFilter(*delivery.response, *delivery.data))) {
    apply(*delivery.freshAnswer, *cache);
  }
  task.setMetrics(delivery.metrics);
  if (completion) completion(delivery.data, delivery.response, delivery.error);
}

}  // namespace paperloom::internal
