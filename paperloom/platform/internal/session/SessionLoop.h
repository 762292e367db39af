#pragma once

#include <algorithm>
#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "paperloom/platform/internal/base/Outstanding.h"
#include "paperloom/platform/internal/session/CacheThreads.h"
#include "paperloom/platform/internal/session/CallbackQueue.h"
#include "paperloom/platform/internal/session/ConnectionSlots.h"
#include "paperloom/platform/internal/session/CurlLoop.h"
#include "paperloom/platform/internal/session/Exchange.h"
#include "paperloom/platform/internal/session/Transfer.h"

namespace paperloom::internal {

// The tasks of a session and their transfers: drives the exchanges, has look-ups and writes made by
// the cache's threads, and leaves the completions to the callback queue. For one thread at a time,
// but for the wait and the wake of network().
//
// A task is in `entries_` from its start to its delivery, and there in one of three ways: its hop
// is being looked up, or it waits for the network to be opened (`held_`) or for a slot with the
// request that is `ready`, or it has a slot and a transfer, which stands in `transfers_`. What a
// look-up finds after the task has been delivered finds no entry. From the delivery on a task
// belongs to the jobs that prepare its answer (work pool), judge it (callback queue), write
// (cache's writer) and call its completion (callback queue), each of which hands it to the next.
class SessionLoop {
 public:
  using Clock = std::chrono::steady_clock;

  // `cache` is null where nothing is stored. `whenFound` hands over what a look-up has found, for
  // found(); it is called on the thread that looks up, whose state it is told.
  using WhenFound =
      std::function<void(std::shared_ptr<TaskCore>, StoredHops, CacheThreads::Thread)>;
  SessionLoop(const URLSessionConfiguration& configuration, CallbackQueue& callbacks,
              CacheThreads* cache, WhenFound whenFound);

  // Whether the system had the descriptors for it.
  bool isUsable() const { return network_.isUsable(); }

  // Whether a request waits for openNetwork(), which is to follow prepareLibcurl(): what the cache
  // answers does not wait for libcurl to be loaded.
  bool needsNetwork() const { return !held_.empty(); }
  void openNetwork();
  CurlLoop& network() { return network_; }

  enum class Command { start, found, cancel, reprioritize };
  struct Posted {
    Command command;
    std::shared_ptr<TaskCore> task;
    StoredHops hops{};  // with `found`
  };
  void obey(Posted posted);

  // Whether something has been handed to the network since it was last settled.
  bool hasUnsent() const { return hasUnsent_; }

  // Takes in what the network has brought and ends what is overdue.
  void settle();

  // When settle() must be called again if the network stays silent.
  Clock::time_point nextLook() const { return std::min(nextCheck_, network_.nextTurn()); }

  // Cancels every task, those of `unsent` too, and closes the connections. Nothing may follow but
  // waiting for what is being prepared.
  void end(std::vector<Posted> unsent);
  void waitForPreparations() { preparing_.waitForAll(); }

 private:
  enum class Purpose { answer, sharedAnswer, refresh };
  struct Entry {
    std::shared_ptr<TaskCore> task;
    Exchange exchange;
    Clock::time_point deadline;
    Purpose purpose = Purpose::answer;
    Receivers followers{};
    bool hasLeft = false;  // the task, cancelled while others wait for its answer
    std::unique_ptr<Transfer> transfer{};
    int losses = 0;      // of connections under it
    std::string host{};  // whose slot the transfer has taken
    std::optional<URLRequest> ready{};
  };

  void start(std::shared_ptr<TaskCore> task, Exchange exchange, Purpose purpose);
  // The entry whose answer is the request's, too; null when there is none.
  Entry* equalOf(const TaskCore& task);
  void follow(Entry& entry, std::shared_ptr<TaskCore> task);
  void leave(Entry& entry, std::shared_ptr<TaskCore> task);
  Entry* entryOf(TaskCore* task);
  static float priorityOf(const Entry& entry);
  Receivers takeReceivers(Entry& entry);
  void startRefresh(Refresh refresh, const TaskCore& origin);
  void found(Entry& entry, StoredHops hops);
  void advance(Entry& entry, Exchange::Step step);
  void sendTo(std::string host, Entry& entry, URLRequest request);
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
  void prepare(Receivers receivers, Delivery delivery);
  void store(Receivers receivers, Delivery delivery);
  void keep(Receivers receivers, Delivery delivery);
  void addCallbacks(Receivers receivers, Delivery delivery);
  void wakeRunner();
  void enforceDeadlines();
  void expire(Entry& entry);
  Clock::time_point expiry(const Entry& entry, Clock::time_point now) const;

  const URLSessionConfiguration& configuration_;
  CallbackQueue& callbacks_;
  CacheThreads* const cache_;
  const WhenFound whenFound_;
  CurlLoop network_;
  std::optional<EasyHandles> handles_;  // once the network is open
  std::vector<TaskCore*> held_;         // until it is
  ConnectionSlots slots_;
  std::unordered_map<TaskCore*, std::unique_ptr<Entry>> entries_;
  std::unordered_map<CURL*, Entry*> transfers_;
  std::unordered_multimap<std::string_view, Entry*> shared_;  // by the URLs of their tasks
  std::unordered_map<TaskCore*, Entry*> followers_;
  std::unordered_set<std::string> refreshes_;
  bool hasUnsent_ = false;
  Outstanding preparing_;
  Clock::time_point nextCheck_ = Clock::time_point::max();
};

}  // namespace paperloom::internal
