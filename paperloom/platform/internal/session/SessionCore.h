#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <memory>
#include <optional>
#include <thread>
#include <vector>

#include "paperloom/platform/Mutex.h"
#include "paperloom/platform/URLSessionConfiguration.h"
#include "paperloom/platform/internal/session/CacheThreads.h"
#include "paperloom/platform/internal/session/CallbackQueue.h"
#include "paperloom/platform/internal/session/SessionLoop.h"
#include "paperloom/platform/internal/session/TaskCore.h"

namespace paperloom::internal {

// What a URLSession holds and its tasks point to: its threads, started with the first task, and
// their end. Safe from any thread.
//
// Two threads share the network, and neither has a part of its own. Both wait for it; the one that
// is woken takes in what has come and runs the completions that follow from it at once, if the
// other is not at that, while the other goes on waiting. And who has something for the loop, a
// thread that starts a task or the cache's thread that has looked one up, sees to it itself when
// nobody else is at the loop. A worker that has run completions makes the look-ups that they have
// asked for, where the disk is quick and the cache's thread has not got to them yet. So an answer
// reaches its completion, and the next request the wire, with as few hand-overs from thread to
// thread as there can be: they cost more than all the rest.
//
// mutex_ guards what is said to the loop (the inbox, whether the session closes) and who waits for
// how long; it is held for moments. loopMutex_ guards the loop; it is held while the loop works,
// never across disk work or a callback, and who starts a task only ever tries it. No wake is
// missed: who puts something into the inbox wakes a thread unless one is attending, and a thread
// that stops attending has seen the inbox empty under the same lock; who finds a callback without a
// runner wakes a thread, and every woken thread offers itself as the runner before it waits again.
class SessionCore {
 public:
  using Command = SessionLoop::Command;

  explicit SessionCore(URLSessionConfiguration configuration);
  ~SessionCore();  // after shutDown()
  SessionCore(const SessionCore&) = delete;
  SessionCore& operator=(const SessionCore&) = delete;

  const URLSessionConfiguration& configuration() const { return configuration_; }

  // False once the session is being shut down; then nothing happens to the task. Touches no disk
  // and waits for nothing that does.
  bool post(Command command, const std::shared_ptr<TaskCore>& task);

  // Cancels what is in flight, runs the completions and ends the threads. Called once; within a
  // completion those that are left run nested.
  void shutDown();

 private:
  using Clock = std::chrono::steady_clock;
  using Posted = SessionLoop::Posted;
  static constexpr std::size_t workers = 2;

  static void work(SessionCore& core, std::size_t worker, std::shared_ptr<CallbackQueue> callbacks);
  // Makes the loop, on the first worker. False when the session closes without one.
  bool makeLoop();
  void failPosted(std::vector<Posted> posted);
  void startSecondWorker();
  // Who posts. A worker runs the completions that follow itself, others leave them to a worker.
  enum class Poster { host, cacheThread, worker };
  bool post(Posted posted, Poster poster, bool mayObeyDirectly);
  // Leaves `posted` alone when somebody else is at the loop.
  bool obeyDirectly(Posted& posted, Poster poster);
  // One wait and what follows from it; false when the session has ended.
  bool turn(std::size_t worker);
  void waitForNetwork(std::size_t worker, CurlLoop::Ready& ready);
  std::vector<Posted> takePosted(bool& closing);
  bool isInboxEmpty();
  // Makes sure that somebody's wait ends when the loop has to be looked after again, and that
  // somebody opens the network once that is needed.
  void announceNextLook() PAPERLOOM_REQUIRES(loopMutex_);
  CurlLoop* network();
  void waitForPreparations();

  const URLSessionConfiguration configuration_;
  const URLSessionConfiguration limits_;  // the same with every number within its range
  const std::shared_ptr<CallbackQueue> callbacks_ = std::make_shared<CallbackQueue>();
  const std::unique_ptr<CacheThreads> cache_;  // null without a cache

  Mutex loopMutex_;  // locked before mutex_
  std::unique_ptr<SessionLoop> loop_ PAPERLOOM_GUARDED_BY(loopMutex_);
  bool ended_ PAPERLOOM_GUARDED_BY(loopMutex_) = false;
  bool isOpening_ PAPERLOOM_GUARDED_BY(loopMutex_) = false;  // a worker opens the network, or is to
  std::atomic<bool> mustOpen_ = false;                       // by the one that takes this back

  Mutex mutex_ PAPERLOOM_ACQUIRED_AFTER(loopMutex_);
  bool closing_ PAPERLOOM_GUARDED_BY(mutex_) = false;
  // A worker is going to look into the inbox, or has been woken for it.
  bool attended_ PAPERLOOM_GUARDED_BY(mutex_) = false;
  std::vector<Posted> inbox_ PAPERLOOM_GUARDED_BY(mutex_);
  Clock::time_point nextLook_ PAPERLOOM_GUARDED_BY(mutex_) = Clock::time_point::max();
  // Until when each worker waits.
  std::array<std::optional<Clock::time_point>, workers> waits_ PAPERLOOM_GUARDED_BY(mutex_);
  std::array<std::thread, workers> threads_ PAPERLOOM_GUARDED_BY(mutex_);
  // The loop's, once there is one; its wait and wake need no lock.
  CurlLoop* network_ PAPERLOOM_GUARDED_BY(mutex_) = nullptr;
  ConditionVariable posted_;  // while there is no loop
};

}  // namespace paperloom::internal
