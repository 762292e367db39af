#include "paperloom/platform/internal/session/Delivery.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "paperloom/platform/internal/http/RequestRules.h"

namespace paperloom::internal {
namespace {

using State = URLSessionTask::State;

}  // namespace

void judge(const TaskCore& task, Delivery& delivery) {
  auto fresh = std::exchange(delivery.freshAnswer, std::nullopt);
  if (!fresh || task.state == State::canceling) return;
  if (!task.storeFilter || task.storeFilter(*delivery.response, *delivery.data)) {
    std::move(delivery.withFreshAnswer.begin(), delivery.withFreshAnswer.end(),
              std::back_inserter(delivery.writes));
    delivery.writes.push_back(*std::move(fresh));
  }
}

void complete(TaskCore& task, Delivery delivery) {
  // They may hold the last reference to the session and have to go on this queue.
  const auto completion = std::move(task.completion);
  const auto storeFilter = std::move(task.storeFilter);
  const auto preparation = std::move(task.preparation);
  if (task.state.exchange(State::completed) == State::canceling) {
    delivery = Delivery{.error = makeError(URLError::Code::cancelled, "cancelled"),
                        .metrics = delivery.metrics};
  }
  task.setOutcome(delivery.metrics, delivery.response, delivery.error);
  if (completion) completion(delivery.data, delivery.response, delivery.error);
}

}  // namespace paperloom::internal
