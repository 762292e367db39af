#pragma once

#include <algorithm>
#include <chrono>
#include <memory>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "paperloom/platform/internal/session/CallbackQueue.h"
#include "paperloom/platform/internal/session/ConnectionSlots.h"
#include "paperloom/platform/internal/session/CurlLoop.h"
#include "paperloom/platform/internal/session/Exchange.h"
#include "paperloom/platform/internal/session/Transfer.h"

namespace paperloom::internal {

// The tasks of a session and their transfers: drives the exchanges and leaves their deliveries to
// the callback queue. Look-ups in the cache happen here, writes there. For one thread at a time,
// but for the wait and the wake of network().
class SessionLoop {
 public:
  using Clock = std::chrono::steady_clock;

  SessionLoop(const URLSessionConfiguration& configuration, CallbackQueue& callbacks);

  // Whether the system had the descriptors for it.
  bool isUsable() const { return network_.isUsable(); }
  CurlLoop& network() { return network_; }

  enum class Command { start, cancel, reprioritize };
  struct Posted {
    Command command;
    std::shared_ptr<TaskCore> task;
  };
  void obey(Posted posted);

  // Takes in what the network has brought and ends what is overdue.
  void settle();

  // When settle() must be called again if the network stays silent.
  Clock::time_point nextLook() const { return std::min(nextCheck_, network_.nextTimer()); }

  // Cancels every task, those of `unsent` too, and closes the connections. Nothing may follow.
  void end(std::vector<Posted> unsent);

 private:
  struct Entry {
    std::shared_ptr<TaskCore> task;
    Exchange exchange;
    Clock::time_point deadline;
    bool isRefresh = false;
    std::unique_ptr<Transfer> transfer{};
    int losses = 0;      // of connections under it
    std::string host{};  // whose slot the transfer has taken
  };

  void start(std::shared_ptr<TaskCore> task, bool isRefresh);
  void startRefresh(URLRequest request, const TaskCore& origin);
  void advance(Entry& entry, Exchange::Step step);
  void send(Entry& entry, URLRequest request, Transfer::Connection connection);
  void finishTransfer(CURL* handle, CURLcode code);
  void sendAgain(Entry& entry, Transfer::Connection connection);
  // Ends the entry's transfer with `error` and goes on from there.
  void abandonTransfer(Entry& entry, URLError error);
  void dropTransfer(Entry& entry);
  // Frees what the transfer held; the caller goes on with the host's next task.
  std::string releaseTransfer(Entry& entry, bool multiplexed);
  void serveWaiting(const std::string& host);
  void cancel(Entry& entry);
  void deliver(Entry& entry, Delivery delivery);
  void enforceDeadlines();
  void expire(Entry& entry);
  Clock::time_point expiry(const Entry& entry, Clock::time_point now) const;

  const URLSessionConfiguration& configuration_;
  CallbackQueue& callbacks_;
  CurlLoop network_;
  EasyHandles handles_;
  ConnectionSlots slots_;
  std::unordered_map<TaskCore*, std::unique_ptr<Entry>> entries_;
  std::unordered_map<CURL*, Entry*> transfers_;
  std::unordered_set<std::string> refreshes_;
  Clock::time_point nextCheck_ = Clock::time_point::max();
};

}  // namespace paperloom::internal
