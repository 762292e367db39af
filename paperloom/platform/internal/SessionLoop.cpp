#include "paperloom/platform/internal/SessionLoop.h"

#include <algorithm>
#include <utility>

#include "paperloom/platform/internal/QuietThread.h"
#include "paperloom/platform/internal/RequestRules.h"

namespace paperloom::internal {
namespace {

using Code = URLError::Code;
using State = URLSessionTask::State;

}  // namespace

SessionLoop::SessionLoop(const URLSessionConfiguration& configuration, SerialQueue& callbacks)
    : configuration_(configuration),
      callbacks_(callbacks),
      curl_(configuration.httpMaximumConnectionsPerHost),
      handles_(configuration, curl_),
      slots_(configuration.httpMaximumConnectionsPerHost) {}

SessionLoop::~SessionLoop() = default;

bool SessionLoop::post(Command command, std::shared_ptr<TaskCore> task) {
  if (command == Command::start && startDirectly(task)) return true;
  bool mustWake = false;
  {
    const std::lock_guard lock(inboxMutex_);
    if (closed_) return false;
    inbox_.push_back({command, std::move(task)});
    mustWake = std::exchange(asleep_, false);
  }
  if (mustWake) curl_.wake();
  return true;
}

bool SessionLoop::startDirectly(const std::shared_ptr<TaskCore>& task) {
  const std::unique_lock state(stateMutex_, std::try_to_lock);
  if (!state) return false;
  {
    const std::lock_guard lock(inboxMutex_);
    if (closed_ || !inbox_.empty()) return false;
  }
  const BrokenPipeShield shield;
  start(task, false);
  finishTransfers();
  if (std::min(nextCheck_, curl_.nextTimer()) < waitsUntil_) curl_.wake();
  return true;
}

void SessionLoop::close() {
  {
    const std::lock_guard lock(inboxMutex_);
    closed_ = true;
  }
  curl_.wake();
}

bool SessionLoop::takePosted() {
  taken_.clear();
  const std::lock_guard lock(inboxMutex_);
  taken_.swap(inbox_);
  return !closed_;
}

void SessionLoop::run() {
  std::unique_lock state(stateMutex_);
  while (takePosted()) {
    for (Posted& posted : taken_) obey(std::move(posted));
    finishTransfers();
    enforceDeadlines();
    waitForNetwork(state);
  }
  cancelEverything();
}

void SessionLoop::finishTransfers() {
  for (const auto& [handle, code] : curl_.advance()) finishTransfer(handle, code);
}

void SessionLoop::waitForNetwork(std::unique_lock<std::mutex>& state) {
  {
    const std::lock_guard lock(inboxMutex_);
    if (!inbox_.empty() || closed_) return;
    asleep_ = true;
  }
  waitsUntil_ = std::min(nextCheck_, curl_.nextTimer());
  const auto until = waitsUntil_;
  state.unlock();
  curl_.wait(until, ready_);
  state.lock();
  waitsUntil_ = Clock::time_point::min();
  {
    const std::lock_guard lock(inboxMutex_);
    asleep_ = false;
  }
  curl_.moveOn(ready_);
}

void SessionLoop::cancelEverything() {
  for (Posted& posted : taken_) {
    // Taken in without being sent: the state alone says what becomes of it.
    if (posted.command != Command::start) continue;
    posted.task->state = State::canceling;
    obey(std::move(posted));
  }
  while (!entries_.empty()) cancel(*entries_.begin()->second);
  // Here, where a farewell written to a closed connection raises no signal.
  handles_.clear();
  curl_.end();
}

void SessionLoop::obey(Posted posted) {
  if (posted.command == Command::start) return start(std::move(posted.task), false);
  const auto found = entries_.find(posted.task.get());
  if (found == entries_.end()) return;
  if (posted.command == Command::cancel) {
    cancel(*found->second);
  } else {
    slots_.setPriority(posted.task.get(), posted.task->priority);
  }
}

void SessionLoop::start(std::shared_ptr<TaskCore> task, bool isRefresh) {
  TaskCore* const key = task.get();
  auto owned = std::make_unique<Entry>(
      Entry{task, Exchange(task->request, configuration_.urlCache),
            Clock::now() + configuration_.timeoutIntervalForResource, isRefresh});
  Entry& entry = *entries_.insert_or_assign(key, std::move(owned)).first->second;
  nextCheck_ = std::min(nextCheck_, entry.deadline);
  if (task->state == State::canceling) return cancel(entry);
  advance(entry, entry.exchange.begin(currentDate()));
}

// Validates in the background what has just been handed out stale. One at a time for a URL.
void SessionLoop::startRefresh(URLRequest request, const TaskCore& origin) {
  if (!refreshes_.insert(request.url.absoluteString()).second) return;
  auto task =
      std::make_shared<TaskCore>(std::move(request), origin.session, nullptr, origin.storeFilter);
  task->state = State::running;
  task->priority = URLSessionTask::lowPriority;
  start(std::move(task), true);
}

void SessionLoop::advance(Entry& entry, Exchange::Step step) {
  if (auto* delivery = std::get_if<Delivery>(&step)) return deliver(entry, std::move(*delivery));
  const std::string host = entry.exchange.request().url.origin();
  if (slots_.take(host)) {
    entry.host = host;
    return send(entry, std::get<URLRequest>(std::move(step)));
  }
  entry.exchange.forgetStored();
  slots_.wait(host, entry.task.get(), entry.task->priority);
}

void SessionLoop::send(Entry& entry, URLRequest request) {
  CURL* const handle = handles_.take();
  if (handle != nullptr) {
    entry.transfer =
        std::make_unique<Transfer>(handle, curl_, std::move(request), configuration_, *entry.task);
    transfers_[handle] = &entry;
    nextCheck_ = std::min(nextCheck_, Clock::now() + configuration_.timeoutIntervalForRequest);
    if (curl_.add(handle)) return;
  }
  abandonTransfer(entry, makeError(Code::unknown, "there is no memory for the request"));
}

void SessionLoop::finishTransfer(CURL* handle, CURLcode code) {
  const auto found = transfers_.find(handle);
  if (found == transfers_.end()) return;
  Entry& entry = *found->second;
  TransferResult result = entry.transfer->finish(code);
  const std::string host = releaseTransfer(entry, result.multiplexed);
  advance(entry, entry.exchange.received(std::move(result), currentDate()));
  serveWaiting(host);
}

void SessionLoop::abandonTransfer(Entry& entry, URLError error) {
  TransferResult result;
  if (entry.transfer) {
    result = entry.transfer->abandon(std::move(error));
  } else {
    result.error = std::move(error);
  }
  const std::string host = releaseTransfer(entry, result.multiplexed);
  advance(entry, entry.exchange.received(std::move(result), currentDate()));
  serveWaiting(host);
}

std::string SessionLoop::releaseTransfer(Entry& entry, bool multiplexed) {
  if (entry.transfer) {
    CURL* const handle = entry.transfer->handle();
    transfers_.erase(handle);
    curl_.remove(handle);
    handles_.giveBack(handle);
    entry.transfer.reset();
  }
  slots_.giveBack(entry.host, multiplexed);
  return std::exchange(entry.host, {});
}

void SessionLoop::serveWaiting(const std::string& host) {
  while (TaskCore* task = slots_.next(host)) {
    Entry& entry = *entries_.at(task);
    advance(entry, entry.exchange.begin(currentDate()));
  }
}

void SessionLoop::cancel(Entry& entry) {
  std::string host;
  if (!entry.host.empty()) host = releaseTransfer(entry, false);
  slots_.stopWaiting(entry.task.get());
  deliver(entry, entry.exchange.fail(makeError(Code::cancelled, "cancelled")));
  if (!host.empty()) serveWaiting(host);
}

void SessionLoop::deliver(Entry& entry, Delivery delivery) {
  const std::shared_ptr<TaskCore> task = std::move(entry.task);
  if (entry.isRefresh) refreshes_.erase(task->request.url.absoluteString());
  entries_.erase(task.get());
  delivery.metrics.countOfBytesReceived = task->bytesReceived;
  // Before the delivery: then the callback queue takes the filter away from the task.
  if (delivery.refresh) startRefresh(*std::exchange(delivery.refresh, std::nullopt), *task);
  auto shared = std::make_shared<Delivery>(std::move(delivery));
  callbacks_.async([task, shared, cache = configuration_.urlCache] {
    complete(*task, std::move(*shared), cache.get());
  });
}

SessionLoop::Clock::time_point SessionLoop::expiry(const Entry& entry,
                                                   Clock::time_point now) const {
  if (!entry.transfer) return entry.deadline;
  const auto since = entry.transfer->idleSince().value_or(now);
  return std::min(entry.deadline, since + configuration_.timeoutIntervalForRequest);
}

void SessionLoop::enforceDeadlines() {
  const auto now = Clock::now();
  if (now < nextCheck_) return;
  nextCheck_ = Clock::time_point::max();
  std::vector<TaskCore*> expired;
  for (const auto& [task, entry] : entries_) {
    const auto when = expiry(*entry, now);
    if (when <= now) {
      expired.push_back(task);
    } else {
      nextCheck_ = std::min(nextCheck_, when);
    }
  }
  for (TaskCore* task : expired) {
    // One that ended may have let another begin, or end.
    if (const auto found = entries_.find(task); found != entries_.end()) expire(*found->second);
  }
}

void SessionLoop::expire(Entry& entry) {
  if (expiry(entry, Clock::now()) > Clock::now()) return;
  auto error = makeError(Code::timedOut, "the request timed out");
  if (entry.transfer) {
    abandonTransfer(entry, std::move(error));
  } else {
    slots_.stopWaiting(entry.task.get());
    deliver(entry, entry.exchange.fail(std::move(error)));
  }
}

}  // namespace paperloom::internal
