#pragma once

#include <functional>
#include <memory>
#include <thread>

namespace paperloom::internal {

// A thread that runs jobs one at a time, in the order they were given. The thread starts with the
// first job. Safe from any thread but for finish(), which is called once.
class SerialQueue {
 public:
  using Job = std::function<void()>;

  SerialQueue();
  ~SerialQueue();
  SerialQueue(const SerialQueue&) = delete;
  SerialQueue& operator=(const SerialQueue&) = delete;

  // Runs and then destroys `job` on the queue's thread. After finish() it is dropped.
  void async(Job job);

  bool isCurrentThread() const;

  // Runs every job that waits and ends the queue; no job runs after it returns. On the queue's own
  // thread, inside a job, the waiting jobs run nested and the thread ends after that job.
  void finish();

 private:
  struct State;

  std::shared_ptr<State> state_;  // also held by the thread, which may outlive this object
  std::thread thread_;
};

}  // namespace paperloom::internal
