#pragma once

#include <chrono>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "paperloom/platform/internal/ConnectionSlots.h"
#include "paperloom/platform/internal/CurlLoop.h"
#include "paperloom/platform/internal/Exchange.h"
#include "paperloom/platform/internal/SerialQueue.h"
#include "paperloom/platform/internal/Transfer.h"

namespace paperloom::internal {

// The event loop of a session: takes tasks from any thread, drives their exchanges on its own, and
// leaves their deliveries to the callback queue. Look-ups in the cache happen here, writes there.
// While the loop waits for the network, a thread that starts a task sends its request itself, which
// spares it the way through the loop's thread.
class SessionLoop {
 public:
  SessionLoop(const URLSessionConfiguration& configuration, SerialQueue& callbacks);
  ~SessionLoop();

  // Whether the system had the descriptors for it.
  bool isUsable() const { return curl_.isUsable(); }

  // From any thread. False after close(); what was accepted before is delivered.
  enum class Command { start, cancel, reprioritize };
  bool post(Command command, std::shared_ptr<TaskCore> task);

  // run() cancels every task that is left and returns. From any thread.
  void close();

  void run();

 private:
  using Clock = std::chrono::steady_clock;

  struct Entry {
    std::shared_ptr<TaskCore> task;
    Exchange exchange;
    Clock::time_point deadline;
    bool isRefresh = false;
    std::unique_ptr<Transfer> transfer{};
    std::string host{};  // whose slot the transfer has taken
  };
  struct Posted {
    Command command;
    std::shared_ptr<TaskCore> task;
  };

  bool startDirectly(const std::shared_ptr<TaskCore>& task);
  bool takePosted();
  void finishTransfers();
  void waitForNetwork(std::unique_lock<std::mutex>& state);
  void cancelEverything();
  void obey(Posted posted);
  void start(std::shared_ptr<TaskCore> task, bool isRefresh);
  void startRefresh(URLRequest request, const TaskCore& origin);
  void advance(Entry& entry, Exchange::Step step);
  void send(Entry& entry, URLRequest request);
  void finishTransfer(CURL* handle, CURLcode code);
  // Ends the entry's transfer with `error` and goes on from there.
  void abandonTransfer(Entry& entry, URLError error);
  // Frees what the transfer held; the caller goes on with the host's next task.
  std::string releaseTransfer(Entry& entry, bool multiplexed);
  void serveWaiting(const std::string& host);
  void cancel(Entry& entry);
  void deliver(Entry& entry, Delivery delivery);
  void enforceDeadlines();
  void expire(Entry& entry);
  Clock::time_point expiry(const Entry& entry, Clock::time_point now) const;

  const URLSessionConfiguration& configuration_;
  SerialQueue& callbacks_;

  std::mutex inboxMutex_;
  std::vector<Posted> inbox_;  // guarded, as are the two below
  bool closed_ = false;
  bool asleep_ = false;

  // Guards everything below but for the wait and the wake of curl_; free while the loop waits.
  std::mutex stateMutex_;
  CurlLoop curl_;
  EasyHandles handles_;
  ConnectionSlots slots_;
  std::vector<Posted> taken_;
  std::unordered_map<TaskCore*, std::unique_ptr<Entry>> entries_;
  std::unordered_map<CURL*, Entry*> transfers_;
  std::unordered_set<std::string> refreshes_;
  Clock::time_point nextCheck_ = Clock::time_point::max();
  Clock::time_point waitsUntil_ = Clock::time_point::min();
  CurlLoop::Ready ready_;
};

}  // namespace paperloom::internal
