#include "paperloom/platform/internal/session/CallbackQueue.h"

#include <utility>

namespace paperloom::internal {

void CallbackQueue::add(Job job) {
  const MutexLock lock(mutex_);
  if (!finished_) jobs_.push_back(std::move(job));
}

bool CallbackQueue::needsRunner() const {
  const MutexLock lock(mutex_);
  return !jobs_.empty() && runner_ == std::thread::id();
}

bool CallbackQueue::isFinished() const {
  const MutexLock lock(mutex_);
  return finished_;
}

// The runner's next job. When there is none it is the runner no more: what is added from then on
// finds somebody else.
CallbackQueue::Job CallbackQueue::take() {
  const MutexLock lock(mutex_);
  if (jobs_.empty()) {
    runner_ = std::thread::id();
    return nullptr;
  }
  Job job = std::move(jobs_.front());
  jobs_.pop_front();
  return job;
}

void CallbackQueue::run() {
  {
    const MutexLock lock(mutex_);
    if (runner_ != std::thread::id()) return;
    runner_ = std::this_thread::get_id();
  }
  while (const Job job = take()) job();
}

void CallbackQueue::finish() {
  while (true) {
    Job job;
    {
      const MutexLock lock(mutex_);
      finished_ = jobs_.empty();
      if (finished_) return;
      job = std::move(jobs_.front());
      jobs_.pop_front();
    }
    job();
  }
}

}  // namespace paperloom::internal
