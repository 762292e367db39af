#include "paperloom/platform/internal/session/SessionCore.h"

#include <curl/curl.h>

#include <algorithm>
#include <utility>

#include "paperloom/platform/internal/base/QuietThread.h"
#include "paperloom/platform/internal/http/RequestRules.h"

namespace paperloom::internal {
namespace {

URLSessionConfiguration withinRange(URLSessionConfiguration configuration) {
  using std::chrono::milliseconds;
  constexpr milliseconds shortest(1);
  constexpr milliseconds longest = std::chrono::hours(24 * 7);
  auto& idle = configuration.timeoutIntervalForRequest;
  auto& whole = configuration.timeoutIntervalForResource;
  idle = std::clamp(idle, shortest, longest);
  whole = std::clamp(whole, shortest, longest);
  configuration.maximumBodySize = std::max<std::int64_t>(0, configuration.maximumBodySize);
  return configuration;
}

}  // namespace

SessionCore::SessionCore(URLSessionConfiguration configuration)
    : configuration_(std::move(configuration)), limits_(withinRange(configuration_)) {
  static const CURLcode initialised = curl_global_init(CURL_GLOBAL_DEFAULT);
  static_cast<void>(initialised);
}

SessionCore::~SessionCore() = default;

bool SessionCore::startWorkers() {
  if (loop_) return true;
  auto loop = std::make_unique<SessionLoop>(limits_, *callbacks_);
  if (!loop->isUsable()) return false;
  loop_ = std::move(loop);
  for (std::size_t i = 0; i < workers; ++i) {
    threads_[i] =
        startQuietThread([this, i, callbacks = callbacks_] { work(*this, i, callbacks); });
  }
  return true;
}

// Out of descriptors: this task fails, the next may succeed.
void SessionCore::failWithoutWorkers(const std::shared_ptr<TaskCore>& task) {
  callbacks_->add([task] {
    auto error = makeError(URLError::Code::unknown, "there are no descriptors for the session");
    complete(*task, Delivery{.error = std::move(error)}, nullptr);
  });
  if (!callbacks_->needsRunner()) return;
  std::thread& spare = threads_[workers];
  if (spare.joinable()) spare.join();  // it has run out of jobs
  spare = startQuietThread([callbacks = callbacks_] { callbacks->run(); });
}

// A completion may end the session, and then `core` is gone when run() returns.
void SessionCore::work(SessionCore& core, std::size_t worker,
                       std::shared_ptr<CallbackQueue> callbacks) {
  while (core.turn(worker)) {
    callbacks->run();
    if (callbacks->isFinished()) return;
  }
  callbacks->run();
}

bool SessionCore::post(Command command, const std::shared_ptr<TaskCore>& task) {
  {
    const std::lock_guard lock(mutex_);
    if (closing_) return false;
    if (!startWorkers()) {
      if (command == Command::start) failWithoutWorkers(task);
      return true;
    }
  }
  if (command == Command::start && startDirectly(task)) return true;
  bool mustWake = false;
  {
    const std::lock_guard lock(mutex_);
    if (closing_) return false;
    inbox_.push_back({command, task});
    mustWake = !std::exchange(attended_, true);
  }
  if (mustWake) loop_->network().wake();
  return true;
}

bool SessionCore::startDirectly(const std::shared_ptr<TaskCore>& task) {
  std::unique_lock loop(loopMutex_, std::try_to_lock);
  if (!loop) return false;
  {
    const std::lock_guard lock(mutex_);
    if (closing_ || !inbox_.empty()) return false;
  }
  const BrokenPipeShield shield;
  loop_->obey({Command::start, task});
  loop_->settle();
  announceNextLook();
  loop.unlock();  // the answer may be there already
  if (callbacks_->needsRunner()) loop_->network().wake();
  return true;
}

bool SessionCore::turn(std::size_t worker) {
  CurlLoop::Ready ready;
  waitForNetwork(worker, ready);
  const std::lock_guard loop(loopMutex_);
  if (ended_) return false;
  loop_->network().moveOn(ready);
  do {
    bool closing = false;
    std::vector<Posted> posted = takePosted(closing);
    if (closing) {
      loop_->end(std::move(posted));
      ended_ = true;
      loop_->network().wake();  // the other worker
      return false;
    }
    for (Posted& one : posted) loop_->obey(std::move(one));
    loop_->settle();
  } while (!isInboxEmpty());
  announceNextLook();
  return true;
}

void SessionCore::waitForNetwork(std::size_t worker, CurlLoop::Ready& ready) {
  Clock::time_point until;
  {
    const std::lock_guard lock(mutex_);
    if (closing_) return;
    until = nextLook_;
    waits_[worker] = until;
  }
  loop_->network().wait(until, ready);
  const std::lock_guard lock(mutex_);
  waits_[worker].reset();
}

std::vector<SessionCore::Posted> SessionCore::takePosted(bool& closing) {
  const std::lock_guard lock(mutex_);
  attended_ = true;
  closing = closing_;
  return std::exchange(inbox_, {});
}

bool SessionCore::isInboxEmpty() {
  const std::lock_guard lock(mutex_);
  attended_ = !inbox_.empty();
  return inbox_.empty();
}

void SessionCore::announceNextLook() {
  bool mustWake = false;
  {
    const std::lock_guard lock(mutex_);
    nextLook_ = loop_->nextLook();
    for (const auto& wait : waits_) mustWake = mustWake || (wait && *wait > nextLook_);
  }
  if (mustWake) loop_->network().wake();
}

void SessionCore::shutDown() {
  {
    const std::lock_guard lock(mutex_);
    closing_ = true;
  }
  if (loop_) loop_->network().wake();
  std::thread* own = nullptr;
  for (std::thread& thread : threads_) {
    if (thread.get_id() == std::this_thread::get_id()) {
      own = &thread;
    } else if (thread.joinable()) {
      thread.join();
    }
  }
  callbacks_->finish();
  if (own != nullptr) own->detach();
}

}  // namespace paperloom::internal
