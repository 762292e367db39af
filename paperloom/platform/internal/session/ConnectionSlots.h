#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <unordered_map>

namespace paperloom::internal {

class TaskCore;

// How many transfers may run to each host at a time, and who waits for the others to end: the
// highest priority first, then the longest wait. For one thread.
class ConnectionSlots {
 public:
  explicit ConnectionSlots(int connectionsPerHost);

  // Takes a slot; false when all of the host's are taken.
  bool take(const std::string& host);
  // `multiplexed`: the host lets many transfers share a connection, so more of them may run.
  void giveBack(const std::string& host, bool multiplexed);
  bool isMultiplexed(const std::string& host) const;

  void wait(const std::string& host, TaskCore* task, float priority);
  // A task that does not wait is left alone.
  void setPriority(TaskCore* task, float priority);
  void stopWaiting(TaskCore* task);
  // The next to be served at a host with a free slot, which it takes; null when there is none.
  TaskCore* next(const std::string& host);

 private:
  struct Place {
    float priority;
    std::uint64_t arrival;
    TaskCore* task;
    bool operator<(const Place& other) const {
      return priority != other.priority ? priority > other.priority : arrival < other.arrival;
    }
  };
  struct Host {
    int taken = 0;
    bool multiplexed = false;
    std::set<Place> queue;
  };
  struct Waiting {
    std::string host;
    Place place;
  };

  int limit(const Host& host) const;
  void dropIfIdle(const std::string& host);

  const int connectionsPerHost_;
  std::uint64_t arrivals_ = 0;
  std::unordered_map<std::string, Host> hosts_;
  std::unordered_map<TaskCore*, Waiting> waiting_;
};

}  // namespace paperloom::internal
