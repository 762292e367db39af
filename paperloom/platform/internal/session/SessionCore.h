#pragma once

#include <array>
#include <chrono>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

#include "paperloom/platform/internal/session/CallbackQueue.h"
#include "paperloom/platform/internal/session/SessionLoop.h"
#include "paperloom/platform/internal/session/TaskCore.h"

namespace paperloom::internal {

// What a URLSession holds and its tasks point to: its threads, started with the first task, and
// their end. Safe from any thread.
//
// Two threads share the work, and neither has a part of its own. Both wait for the network; the one
// that is woken takes in what has come and runs the completions that follow from it at once, if the
// other is not at that, while the other goes on waiting. And a thread that starts a task sends its
// request itself when nobody else is at the loop. So an answer reaches its completion, and the next
// request the wire, without being handed from thread to thread, which costs more than all the rest.
class SessionCore {
 public:
  using Command = SessionLoop::Command;

  explicit SessionCore(URLSessionConfiguration configuration);
  ~SessionCore();  // after shutDown()
  SessionCore(const SessionCore&) = delete;
  SessionCore& operator=(const SessionCore&) = delete;

  const URLSessionConfiguration& configuration() const { return configuration_; }

  // False once the session is being shut down; then nothing happens to the task.
  bool post(Command command, const std::shared_ptr<TaskCore>& task);

  // Cancels what is in flight, runs the completions and ends the threads. Called once; within a
  // completion those that are left run nested.
  void shutDown();

 private:
  using Clock = std::chrono::steady_clock;
  using Posted = SessionLoop::Posted;
  static constexpr std::size_t workers = 2;

  bool startWorkers();
  void failWithoutWorkers(const std::shared_ptr<TaskCore>& task);
  static void work(SessionCore& core, std::size_t worker, std::shared_ptr<CallbackQueue> callbacks);
  bool startDirectly(const std::shared_ptr<TaskCore>& task);
  // One wait and what follows from it; false when the session has ended.
  bool turn(std::size_t worker);
  void waitForNetwork(std::size_t worker, CurlLoop::Ready& ready);
  std::vector<Posted> takePosted(bool& closing);
  bool isInboxEmpty();
  // Makes sure that somebody's wait ends when the loop has to be looked after again.
  void announceNextLook();

  const URLSessionConfiguration configuration_;
  const URLSessionConfiguration limits_;  // the same with every number within its range
  const std::shared_ptr<CallbackQueue> callbacks_ = std::make_shared<CallbackQueue>();

  std::mutex mutex_;  // never held for long; guards these
  bool closing_ = false;
  bool attended_ = false;  // a worker is going to look into the inbox, or has been woken for it
  std::vector<Posted> inbox_;
  Clock::time_point nextLook_ = Clock::time_point::max();
  std::array<std::optional<Clock::time_point>, workers> waits_;  // until when each waits
  std::array<std::thread, workers + 1> threads_;  // the last tells of failures to start the others

  std::mutex loopMutex_;               // locked before mutex_; guards these
  std::unique_ptr<SessionLoop> loop_;  // once made, its wait and wake need no lock
  bool ended_ = false;
};

}  // namespace paperloom::internal
