#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <thread>
#include <utility>
#include <vector>

#include "paperloom/platform/Mutex.h"
#include "paperloom/platform/internal/base/QuietThread.h"

namespace paperloom::internal {

// A thread, started with its first job, that takes at once whatever has been given to it while it
// was at the jobs before. Safe from any thread.
//
// mutex_ guards the jobs and the end, and is never held while jobs are done. No wake is missed: a
// job is added under it, and the thread waits only after it has seen under it that there is none.
template <class Job>
class BatchThread {
 public:
  using Work = std::function<void(std::vector<Job>)>;
  // `whenQuiet` is called on the thread once no job has come for a moment after others.
  explicit BatchThread(Work work, std::function<void()> whenQuiet = nullptr)
      : work_(std::move(work)), whenQuiet_(std::move(whenQuiet)) {}
  BatchThread(const BatchThread&) = delete;
  BatchThread& operator=(const BatchThread&) = delete;

  // False after finish(): then nothing happens to the job.
  bool add(Job& job) {
    {
      const MutexLock lock(mutex_);
      if (finished_) return false;
      jobs_.push_back(std::move(job));
      if (!thread_.joinable()) thread_ = startQuietThread([this] { run(); });
    }
    added_.notifyOne();
    return true;
  }

  // The first job that the thread has not taken yet, for a thread that can do it sooner.
  std::optional<Job> takeOne() {
    const MutexLock lock(mutex_);
    if (jobs_.empty()) return std::nullopt;
    std::optional<Job> job(std::move(jobs_.front()));
    jobs_.erase(jobs_.begin());
    return job;
  }

  // Does or drops what is left, and ends the thread. To be called once, before the destruction.
  enum class Left { done, dropped };
  void finish(Left left) {
    std::thread thread;
    {
      const MutexLock lock(mutex_);
      finished_ = true;
      if (left == Left::dropped) jobs_.clear();
      thread = std::move(thread_);
    }
    added_.notifyOne();
    if (thread.joinable()) thread.join();
  }

 private:
  static constexpr std::chrono::milliseconds quiet{100};

  void run() {
    const BrokenPipeShield shield;
    for (auto jobs = take(); !jobs.empty(); jobs = take()) work_(std::move(jobs));
  }

  // Empty at the end.
  std::vector<Job> take() {
    const MutexLock lock(mutex_);
    bool awaitsQuiet = hasWorked_ && whenQuiet_;
    while (!finished_ && jobs_.empty()) {
      if (!awaitsQuiet) {
        added_.wait(mutex_);
      } else if (!added_.waitUntil(mutex_, std::chrono::steady_clock::now() + quiet)) {
        awaitsQuiet = false;
        whenQuiet_();
      }
    }
    hasWorked_ = true;
    return std::exchange(jobs_, {});
  }

  const Work work_;
  const std::function<void()> whenQuiet_;
  Mutex mutex_;
  ConditionVariable added_;
  std::vector<Job> jobs_ PAPERLOOM_GUARDED_BY(mutex_);
  bool hasWorked_ PAPERLOOM_GUARDED_BY(mutex_) = false;
  bool finished_ PAPERLOOM_GUARDED_BY(mutex_) = false;
  std::thread thread_ PAPERLOOM_GUARDED_BY(mutex_);
};

}  // namespace paperloom::internal
