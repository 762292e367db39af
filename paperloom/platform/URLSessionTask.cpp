#include "paperloom/platform/URLSessionTask.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "paperloom/platform/internal/session/Delivery.h"
#include "paperloom/platform/internal/session/SessionCore.h"
#include "paperloom/platform/internal/session/TaskCore.h"

namespace paperloom {

namespace {

using Command = internal::SessionLoop::Command;

}  // namespace

URLSessionTask::URLSessionTask(std::shared_ptr<internal::TaskCore> core) : core_(std::move(core)) {}

URLSessionTask::~URLSessionTask() = default;

std::shared_ptr<URLSessionTask> URLSessionTask::unattached(URLRequest request) {
  auto core = std::make_shared<internal::TaskCore>(
      std::move(request), std::weak_ptr<internal::SessionCore>(), nullptr, nullptr);
  return std::shared_ptr<URLSessionTask>(new URLSessionTask(std::move(core)));
}

std::shared_ptr<URLSessionTask> URLSessionTask::answeredFromCache(
    URLRequest request, CachedURLResponse copy, std::optional<std::chrono::seconds> age) {
  auto core = std::make_shared<internal::TaskCore>(
      std::move(request), std::weak_ptr<internal::SessionCore>(), nullptr, nullptr);
  core->state = State::running;
  core->tellStarted(false);
  internal::Delivery delivery{.response = copy.response};
  delivery.metrics.source = URLSessionTaskMetrics::Source::cache;
  delivery.metrics.age = age;
  delivery.metrics.fetchedAt = copy.responseTime;
  core->setStored(std::move(copy));
  internal::complete(*core, std::move(delivery));
  return std::shared_ptr<URLSessionTask>(new URLSessionTask(std::move(core)));
}

void URLSessionTask::resume() {
  const auto session = core_->session.lock();
  if (!session) return;
  State expected = State::suspended;
  if (!core_->state.compare_exchange_strong(expected, State::running)) return;
  core_->tellStarted(false);
  if (!session->post(Command::start, core_)) core_->state = State::completed;
}

void URLSessionTask::cancel() {
  const auto session = core_->session.lock();
  if (!session) return;
  State before = core_->state;
  do {
    if (before == State::canceling || before == State::completed) return;
  } while (!core_->state.compare_exchange_weak(before, State::canceling));
  // A task that was never resumed passes through the session only to be told.
  const Command command = before == State::suspended ? Command::start : Command::cancel;
  if (!session->post(command, core_) && before == State::suspended) {
    core_->state = State::completed;
  }
}

float URLSessionTask::priority() const { return core_->priority; }

void URLSessionTask::setPriority(float priority) {
  core_->priority = std::isnan(priority) ? defaultPriority : std::clamp(priority, 0.0F, 1.0F);
  const auto session = core_->session.lock();
  if (session && state() == State::running) session->post(Command::reprioritize, core_);
}

URLSessionTask::State URLSessionTask::state() const { return core_->state; }

const URLRequest& URLSessionTask::originalRequest() const { return core_->request; }

std::int64_t URLSessionTask::countOfBytesReceived() const { return core_->countOfBytesReceived(); }

std::int64_t URLSessionTask::countOfBytesExpectedToReceive() const {
  return core_->countOfBytesExpected();
}

URLSessionTaskMetrics URLSessionTask::metrics() const { return core_->metrics(); }

std::optional<HTTPURLResponse> URLSessionTask::response() const { return core_->response(); }

std::optional<URLError> URLSessionTask::error() const { return core_->error(); }

std::optional<CachedURLResponse> URLSessionTask::storedResponse() const { return core_->stored(); }

}  // namespace paperloom
