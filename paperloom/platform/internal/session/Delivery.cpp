#include "paperloom/platform/internal/session/Delivery.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "paperloom/platform/Events.h"
#include "paperloom/platform/internal/http/RequestRules.h"

namespace paperloom::internal {
namespace {

using State = URLSessionTask::State;

void tellAnswered(const TaskCore& task, const Delivery& delivery) {
  const URL url = Events::withoutSecrets(task.request.url);
  if (delivery.reasonNotKept != nullptr && !delivery.error) {
    Events::tell([&] { return event::CopyRefused{url, delivery.reasonNotKept}; });
  }
  Events::tell([&] {
    event::RequestAnswered answered{.request = task.eventNumber, .url = url};
    if (delivery.response) answered.statusCode = delivery.response->statusCode;
    if (delivery.error) answered.error = delivery.error->code;
    answered.source = delivery.metrics.source;
    answered.serverFailed = delivery.metrics.serverFailed;
    answered.bytes = task.countOfBytesReceived();
    if (task.eventNumber != 0) {
      answered.duration = std::chrono::duration_cast<std::chrono::microseconds>(
          std::chrono::steady_clock::now() - task.begun);
    }
    return answered;
  });
}

}  // namespace

void judge(const Receivers& receivers, Delivery& delivery) {
  auto fresh = std::exchange(delivery.freshAnswer, std::nullopt);
  bool isAsked = false;
  const bool isAccepted =
      fresh && std::any_of(receivers.begin(), receivers.end(), [&](const auto& task) {
        if (task->state == State::canceling) return false;
        isAsked = true;
        return !task->storeFilter || task->storeFilter(*delivery.response, *delivery.data);
      });
  if (isAccepted) {
    std::move(delivery.withFreshAnswer.begin(), delivery.withFreshAnswer.end(),
              std::back_inserter(delivery.writes));
    delivery.writes.push_back(*std::move(fresh));
  } else if (isAsked) {
    delivery.reasonNotKept = "its receiver does not accept it";
  }
}

void tellWhatWasKept(const URLCache& cache, const std::vector<URLCache::Change>& writes) {
  for (const URLCache::Change& write : writes) {
    if (!write.response) continue;
    const auto copy = cache.cachedResponse(write.request);
    const bool isKept = copy && copy->responseTime == write.response->responseTime;
    const URL url = Events::withoutSecrets(write.request.url);
    Events::tell([&]() -> Event {
      if (isKept) return event::CopyKept{url, copy->data.size()};
      return event::CopyRefused{url, "the cache has no room for it"};
    });
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
  if (Events::hasListener()) tellAnswered(task, delivery);
  task.setOutcome(delivery.metrics, delivery.response, delivery.error);
  if (completion) completion(delivery.data, delivery.response, delivery.error);
}

}  // namespace paperloom::internal
