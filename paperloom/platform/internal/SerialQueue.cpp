#include "paperloom/platform/internal/SerialQueue.h"

#include <condition_variable>
#include <deque>
#include <mutex>
#include <utility>

#include "paperloom/platform/internal/QuietThread.h"

namespace paperloom::internal {

struct SerialQueue::State {
  std::mutex mutex;
  std::condition_variable wake;
  std::deque<Job> jobs;
  bool started = false;
  bool closed = false;
  std::thread::id threadId;

  // The next job; nothing once the queue is closed and empty. Without `mayWait` an empty queue is
  // closed.
  Job take(bool mayWait) {
    std::unique_lock lock(mutex);
    if (mayWait) wake.wait(lock, [&] { return !jobs.empty() || closed; });
    if (jobs.empty()) {
      closed = true;
      return nullptr;
    }
    Job job = std::move(jobs.front());
    jobs.pop_front();
    return job;
  }

  void close() {
    const std::lock_guard lock(mutex);
    closed = true;
    wake.notify_all();
  }
};

SerialQueue::SerialQueue() : state_(std::make_shared<State>()) {}

SerialQueue::~SerialQueue() { finish(); }

void SerialQueue::async(Job job) {
  const std::lock_guard lock(state_->mutex);
  if (state_->closed) return;
  if (!state_->started) {
    thread_ = startQuietThread([state = state_] {
      while (Job next = state->take(true)) next();
    });
    state_->threadId = thread_.get_id();
    state_->started = true;
  }
  state_->jobs.push_back(std::move(job));
  state_->wake.notify_one();
}

bool SerialQueue::isCurrentThread() const {
  const std::lock_guard lock(state_->mutex);
  return state_->threadId == std::this_thread::get_id();
}

void SerialQueue::finish() {
  if (!thread_.joinable()) return state_->close();
  if (isCurrentThread()) {
    while (Job next = state_->take(false)) next();
    thread_.detach();
  } else {
    state_->close();
    thread_.join();
  }
}

}  // namespace paperloom::internal
