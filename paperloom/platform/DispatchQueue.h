#pragma once

#include <cstddef>
#include <functional>
#include <memory>

#include "paperloom/platform/Export.h"

namespace paperloom {

// A serial queue that its owner pumps. The library hands article and image answers and the changes
// of the network activity indicator to the main queue; the host runs it, in one of three ways:
// run() gives it the calling thread; runPending() is called from a loop of the host's own, which
// learns that work waits from fileDescriptor() or from a wake-up callback.
//
// async() may be called on any thread; run() and runPending() belong to one thread at a time.
class PAPERLOOM_EXPORT DispatchQueue {
 public:
  // The process's main queue.
  static DispatchQueue& main();

  DispatchQueue();
  ~DispatchQueue();
  DispatchQueue(const DispatchQueue&) = delete;
  DispatchQueue& operator=(const DispatchQueue&) = delete;

  // Queues `work`; it runs in its turn on the thread that pumps the queue. An empty function is
  // not queued.
  void async(std::function<void()> work);

  // Runs work as it comes until stop() is called, then returns once the work under way is done;
  // what is still queued stays, in its order.
  void run();
  // Ends run(), or the next run() when none is under way. Any thread.
  void stop();

  // Runs what was queued before the call and returns how much that was. Work queued meanwhile
  // waits for the next call.
  std::size_t runPending();

  // A descriptor that polls readable while work waits. Owned by the queue; only poll it.
  int fileDescriptor() const;

  // `wakeUp` is called on the thread that queues work, whenever the queue stops being empty. One at
  // a time; an empty function takes it away.
  void setWakeUp(std::function<void()> wakeUp);

 private:
  std::size_t runBatch(bool untilStopped);

  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace paperloom
