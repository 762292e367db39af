#pragma once

#include <memory>
#include <mutex>
#include <thread>

#include "paperloom/platform/internal/SerialQueue.h"
#include "paperloom/platform/internal/SessionLoop.h"
#include "paperloom/platform/internal/TaskCore.h"

namespace paperloom::internal {

// What a URLSession holds and its tasks point to: the two threads, started with the first task, and
// their end. Safe from any thread.
class SessionCore {
 public:
  explicit SessionCore(URLSessionConfiguration configuration);
  ~SessionCore();  // after shutDown()
  SessionCore(const SessionCore&) = delete;
  SessionCore& operator=(const SessionCore&) = delete;

  const URLSessionConfiguration& configuration() const { return configuration_; }

  // False once the session is being shut down; then nothing happens to the task.
  bool post(SessionLoop::Command command, const std::shared_ptr<TaskCore>& task);

  // Cancels what is in flight, runs the completions and ends the threads. Called once; on the
  // callback queue the completions that are left run nested.
  void shutDown();

 private:
  bool startLoop();

  const URLSessionConfiguration configuration_;
  const URLSessionConfiguration limits_;  // the same with every number within its range
  SerialQueue callbacks_;

  std::mutex mutex_;
  bool closing_ = false;  // guarded, as are the two below
  std::unique_ptr<SessionLoop> loop_;
  std::thread thread_;
};

}  // namespace paperloom::internal
