#include "paperloom/platform/internal/base/WorkPool.h"

#include <algorithm>
#include <thread>
#include <utility>

#include "paperloom/platform/internal/base/QuietThread.h"

namespace paperloom::internal {

WorkPool& WorkPool::shared() {
  static auto* const pool = new WorkPool(std::max(1U, std::thread::hardware_concurrency()));
  return *pool;
}

void WorkPool::add(Job job) {
  {
    const MutexLock lock(mutex_);
    jobs_.push_back(std::move(job));
    if (jobs_.size() > idle_ && threads_ < most_) {
      ++threads_;
      startQuietThread([this] { work(); }).detach();
    }
  }
  added_.notifyOne();
}

void WorkPool::work() {
  for (;;) {
    Job job;
    {
      const MutexLock lock(mutex_);
      ++idle_;
      while (jobs_.empty()) added_.wait(mutex_);
      --idle_;
      job = std::move(jobs_.front());
      jobs_.pop_front();
    }
    job();
  }
}

}  // namespace paperloom::internal
