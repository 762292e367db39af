#include "paperloom/platform/internal/session/ConnectionSlots.h"

#include <algorithm>

namespace paperloom::internal {
namespace {

constexpr int multiplexedTransfers = 64;
constexpr std::size_t rememberedHosts = 1024;

}  // namespace

ConnectionSlots::ConnectionSlots(int connectionsPerHost)
    : connectionsPerHost_(std::max(1, connectionsPerHost)) {}

int ConnectionSlots::limit(const Host& host) const {
  return host.multiplexed ? std::max(connectionsPerHost_, multiplexedTransfers)
                          : connectionsPerHost_;
}

bool ConnectionSlots::take(const std::string& host) {
  Host& entry = hosts_[host];
  if (entry.taken >= limit(entry)) return false;
  ++entry.taken;
  return true;
}

void ConnectionSlots::giveBack(const std::string& host, bool multiplexed) {
  Host& entry = hosts_[host];
  --entry.taken;
  if (multiplexed) entry.multiplexed = true;
  dropIfIdle(host);
}

bool ConnectionSlots::isMultiplexed(const std::string& host) const {
  const auto found = hosts_.find(host);
  return found != hosts_.end() && found->second.multiplexed;
}

void ConnectionSlots::wait(const std::string& host, TaskCore* task, float priority) {
  const Place place{priority, arrivals_++, task};
  hosts_[host].queue.insert(place);
  waiting_.insert_or_assign(task, Waiting{host, place});
}

void ConnectionSlots::setPriority(TaskCore* task, float priority) {
  const auto found = waiting_.find(task);
  if (found == waiting_.end()) return;
  Waiting& waiting = found->second;
  auto& queue = hosts_[waiting.host].queue;
  queue.erase(waiting.place);
  waiting.place.priority = priority;
  queue.insert(waiting.place);
}

void ConnectionSlots::stopWaiting(TaskCore* task) {
  const auto found = waiting_.find(task);
  if (found == waiting_.end()) return;
  const Waiting waiting = found->second;
  waiting_.erase(found);
  hosts_[waiting.host].queue.erase(waiting.place);
  dropIfIdle(waiting.host);
}

TaskCore* ConnectionSlots::next(const std::string& host) {
  const auto found = hosts_.find(host);
  if (found == hosts_.end()) return nullptr;
  Host& entry = found->second;
  if (entry.queue.empty() || entry.taken >= limit(entry)) return nullptr;
  TaskCore* task = entry.queue.begin()->task;
  entry.queue.erase(entry.queue.begin());
  waiting_.erase(task);
  ++entry.taken;
  return task;
}

void ConnectionSlots::dropIfIdle(const std::string& host) {
  const auto found = hosts_.find(host);
  if (found == hosts_.end() || found->second.taken > 0 || !found->second.queue.empty()) return;
  if (!found->second.multiplexed || hosts_.size() > rememberedHosts) hosts_.erase(found);
}

}  // namespace paperloom::internal
