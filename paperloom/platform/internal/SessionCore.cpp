#include "paperloom/platform/internal/SessionCore.h"

#include <curl/curl.h>

#include <algorithm>
#include <chrono>
#include <utility>

#include "paperloom/platform/internal/QuietThread.h"
#include "paperloom/platform/internal/RequestRules.h"

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

bool SessionCore::startLoop() {
  if (loop_) return true;
  auto loop = std::make_unique<SessionLoop>(limits_, callbacks_);
  if (!loop->isUsable()) return false;
  loop_ = std::move(loop);
  thread_ = startQuietThread([raw = loop_.get()] { raw->run(); });
  return true;
}

bool SessionCore::post(SessionLoop::Command command, const std::shared_ptr<TaskCore>& task) {
  SessionLoop* loop = nullptr;
  {
    const std::lock_guard lock(mutex_);
    if (closing_) return false;
    if (startLoop()) loop = loop_.get();
  }
  if (loop != nullptr) return loop->post(command, task);
  if (command == SessionLoop::Command::start) {
    // Out of descriptors: this task fails, the next may succeed.
    callbacks_.async([task] {
      auto error = makeError(URLError::Code::unknown, "there are no descriptors for the session");
      complete(*task, Delivery{.error = std::move(error)}, nullptr);
    });
  }
  return true;
}

void SessionCore::shutDown() {
  {
    const std::lock_guard lock(mutex_);
    closing_ = true;
  }
  if (loop_) {
    loop_->close();
    thread_.join();
  }
  callbacks_.finish();
}

}  // namespace paperloom::internal
