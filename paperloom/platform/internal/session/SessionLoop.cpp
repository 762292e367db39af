#include "paperloom/platform/internal/session/SessionLoop.h"

#include <algorithm>
#include <utility>

#include "paperloom/platform/Events.h"
#include "paperloom/platform/internal/base/WorkPool.h"
#include "paperloom/platform/internal/http/ConfigurationRules.h"
#include "paperloom/platform/internal/http/RequestRules.h"

namespace paperloom::internal {
namespace {

using Code = URLError::Code;
using State = URLSessionTask::State;

// How often a request is sent again by the session when a connection that it shares fails.
constexpr int maximumLosses = 3;

}  // namespace

SessionLoop::SessionLoop(const URLSessionConfiguration& configuration, CallbackQueue& callbacks,
                         CacheThreads* cache, WhenFound whenFound)
    : configuration_(configuration),
      callbacks_(callbacks),
      cache_(cache),
      whenFound_(std::move(whenFound)),
      network_(configuration.httpMaximumConnectionsPerHost),
      slots_(configuration.httpMaximumConnectionsPerHost) {}

void SessionLoop::settle() {
  bool sends = std::exchange(hasUnsent_, false);
  // A transfer that ends may let another begin, which is to be sent at once. One whose bytes do not
  // end has its timer due again and again, and lets the others have their turn.
  constexpr int rounds = 8;
  constexpr auto longest = std::chrono::milliseconds(20);
  const auto begun = Clock::now();
  const auto mayGoOn = [&](Clock::time_point now) {
    return network_.nextTimer() <= now && now - begun < longest;
  };
  for (int i = 0; i == 0 || (i < rounds && mayGoOn(Clock::now())); ++i) {
    for (const auto& [handle, code] : network_.advance()) finishTransfer(handle, code);
    enforceDeadlines();
  }
  // While the server has the word. Otherwise somebody waits for what has come, and a few can wait.
  constexpr std::size_t few = 4;
  sends = std::exchange(hasUnsent_, false) || sends;
  if (handles_ && (sends || handles_->retiredCount() > few)) handles_->tidyUp();
}

void SessionLoop::end(std::vector<Posted> unsent) {
  for (Posted& posted : unsent) {
    // Taken in without being sent: the state alone says what becomes of it.
    if (posted.command != Command::start) continue;
    posted.task->state = State::canceling;
    obey(std::move(posted));
  }
  while (!entries_.empty()) cancel(*entries_.begin()->second);
  network_.end();
}

void SessionLoop::obey(Posted posted) {
  if (posted.command == Command::start) {
    const bool mayShare =
        posted.task->request.sharesAnswer && posted.task->state != State::canceling;
    Entry* const equal = mayShare ? equalOf(*posted.task) : nullptr;
    if (equal != nullptr) return follow(*equal, std::move(posted.task));
    Exchange exchange(posted.task->request, configuration_);
    return start(std::move(posted.task), std::move(exchange),
                 mayShare ? Purpose::sharedAnswer : Purpose::answer);
  }
  Entry* const entry = entryOf(posted.task.get());
  if (entry == nullptr) return;  // it was answered while the command was on its way
  switch (posted.command) {
    case Command::start:
      break;
    case Command::found:
      return found(*entry, std::move(posted.hops));
    case Command::cancel:
      return leave(*entry, std::move(posted.task));
    case Command::reprioritize:
      return slots_.setPriority(entry->task.get(), priorityOf(*entry));
  }
}

SessionLoop::Entry* SessionLoop::equalOf(const TaskCore& task) {
  const URLRequest& request = task.request;
  if (request.method != "GET" || request.body) return nullptr;
  const auto [first, last] = shared_.equal_range(request.url.absoluteString());
  const auto found = std::find_if(first, last, [&](const auto& one) {
    const URLRequest& other = one.second->task->request;
    return one.second->task->maximumBodySize == task.maximumBodySize &&
           other.method == request.method && !other.body && other.headers == request.headers &&
           other.cachePolicy == request.cachePolicy &&
           other.refreshIfOlderThan == request.refreshIfOlderThan &&
           other.followsRedirects == request.followsRedirects &&
           other.staysAtOrigin == request.staysAtOrigin;
  });
  return found == last ? nullptr : found->second;
}

void SessionLoop::follow(Entry& entry, std::shared_ptr<TaskCore> task) {
  task->follow(entry.task);
  task->setStored(entry.exchange.storedBefore());
  followers_[task.get()] = &entry;
  entry.followers.push_back(std::move(task));
  slots_.setPriority(entry.task.get(), priorityOf(entry));
}

void SessionLoop::leave(Entry& entry, std::shared_ptr<TaskCore> task) {
  const bool isFirst = task == entry.task;
  if (isFirst && entry.followers.empty()) return cancel(entry);
  if (isFirst) {
    entry.hasLeft = true;
  } else {
    std::erase(entry.followers, task);
    followers_.erase(task.get());
  }
  Delivery delivery{.error = makeError(Code::cancelled, "cancelled")};
  delivery.metrics.countOfBytesReceived = entry.task->bytesReceived;
  addCallbacks({std::move(task)}, std::move(delivery));
  if (entry.hasLeft && entry.followers.empty()) return cancel(entry);
  slots_.setPriority(entry.task.get(), priorityOf(entry));
}

SessionLoop::Entry* SessionLoop::entryOf(TaskCore* task) {
  if (const auto own = entries_.find(task); own != entries_.end()) return own->second.get();
  const auto others = followers_.find(task);
  return others == followers_.end() ? nullptr : others->second;
}

float SessionLoop::priorityOf(const Entry& entry) {
  float highest = entry.hasLeft ? 0 : entry.task->priority.load();
  for (const auto& task : entry.followers) highest = std::max(highest, task->priority.load());
  return highest;
}

Receivers SessionLoop::takeReceivers(Entry& entry) {
  if (entry.purpose == Purpose::sharedAnswer) {
    const auto [first, last] = shared_.equal_range(entry.task->request.url.absoluteString());
    const auto own =
        std::find_if(first, last, [&](const auto& one) { return one.second == &entry; });
    if (own != last) shared_.erase(own);
  }
  Receivers receivers;
  if (!entry.hasLeft) receivers.push_back(entry.task);
  for (auto& task : entry.followers) {
    followers_.erase(task.get());
    receivers.push_back(std::move(task));
  }
  return receivers;
}

void SessionLoop::start(std::shared_ptr<TaskCore> task, Exchange exchange, Purpose purpose) {
  TaskCore* const key = task.get();
  auto owned = std::make_unique<Entry>(
      Entry{task, std::move(exchange), Clock::now() + configuration_.timeoutIntervalForResource,
            purpose});
  Entry& entry = *entries_.insert_or_assign(key, std::move(owned)).first->second;
  nextCheck_ = std::min(nextCheck_, entry.deadline);
  // Cancelled before it was begun: it is answered like any other, without being sent.
  if (task->state == State::canceling) return cancel(entry);
  if (purpose == Purpose::sharedAnswer) shared_.emplace(task->request.url.absoluteString(), &entry);
  advance(entry, entry.exchange.begin(currentDate()));
}

// Validates in the background what has just been handed out stale. One at a time for a URL.
void SessionLoop::startRefresh(Refresh refresh, const TaskCore& origin) {
  if (!refreshes_.insert(refresh.request.url.absoluteString()).second) return;
  auto task =
      std::make_shared<TaskCore>(refresh.request, origin.session, nullptr, origin.storeFilter);
  task->state = State::running;
  task->priority = URLSessionTask::lowPriority;
  task->tellStarted(true);
  StoredHops known;
  known.push_back({refresh.request, std::move(refresh.stored)});
  Exchange exchange(std::move(refresh.request), configuration_, std::move(known));
  start(std::move(task), std::move(exchange), Purpose::refresh);
}

void SessionLoop::found(Entry& entry, StoredHops hops) {
  Exchange::Step step = entry.exchange.found(std::move(hops), currentDate());
  entry.task->setStored(entry.exchange.storedBefore());
  for (const auto& task : entry.followers) task->setStored(entry.exchange.storedBefore());
  advance(entry, std::move(step));
}

void SessionLoop::advance(Entry& entry, Exchange::Step step) {
  if (auto* delivery = std::get_if<Delivery>(&step)) return deliver(entry, std::move(*delivery));
  if (std::holds_alternative<Exchange::LookUp>(step)) {
    auto known = cache_->lookUp(entry.exchange.request(),
                                [this, task = entry.task](auto hops, auto thread) mutable {
                                  whenFound_(std::move(task), std::move(hops), thread);
                                });
    if (known) found(entry, *std::move(known));
    return;
  }
  auto request = std::get<URLRequest>(std::move(step));
  if (auto refusal = refusalOf(request, configuration_)) {
    TransferResult unsent;
    unsent.error = std::move(refusal);
    return advance(entry, entry.exchange.received(std::move(unsent), currentDate()));
  }
  if (!network_.isOpen()) {
    entry.ready = std::move(request);
    held_.push_back(entry.task.get());
    return;
  }
  std::string host = entry.exchange.request().url.origin();
  if (slots_.take(host)) return sendTo(std::move(host), entry, std::move(request));
  entry.ready = std::move(request);
  slots_.wait(host, entry.task.get(), priorityOf(entry));
}

void SessionLoop::openNetwork() {
  const bool isOpen = network_.open();
  if (isOpen && !handles_) handles_.emplace(configuration_, network_);
  for (TaskCore* task : std::exchange(held_, {})) {
    Entry& entry = *entries_.at(task);
    URLRequest request = *std::exchange(entry.ready, std::nullopt);
    if (isOpen) {
      advance(entry, std::move(request));
    } else {
      TransferResult unsent;
      unsent.error = makeError(Code::unknown, "there are no descriptors for the network");
      advance(entry, entry.exchange.received(std::move(unsent), currentDate()));
    }
  }
}

void SessionLoop::sendTo(std::string host, Entry& entry, URLRequest request) {
  entry.host = std::move(host);
  send(entry, std::move(request), Transfer::Connection::kept);
}

void SessionLoop::send(Entry& entry, URLRequest request, Transfer::Connection connection) {
  entry.transfer = std::make_unique<Transfer>(handles_->make(), network_, std::move(request),
                                              connection, configuration_, *entry.task);
  entry.transfer->expectHTTP2(slots_.isMultiplexed(entry.host));
  CURL* const handle = entry.transfer->handle();
  transfers_[handle] = &entry;
  hasUnsent_ = true;
  nextCheck_ = std::min(nextCheck_, Clock::now() + configuration_.timeoutIntervalForRequest);
  if (entry.transfer->isSound() && network_.add(handle)) return;
  abandonTransfer(entry, makeError(Code::unknown, "there is no memory for the request"));
}

void SessionLoop::finishTransfer(CURL* handle, CURLcode code) {
  const auto found = transfers_.find(handle);
  if (found == transfers_.end()) return;
  Entry& entry = *found->second;
  // Bytes that nobody asked for could be read as the answer to the next request (RFC 9112 section
  // 9.2): the connection is of no more use, the request is.
  if (entry.transfer->metUnaskedInput(code)) return sendAgain(entry, Transfer::Connection::fresh);
  if (entry.transfer->lostSharedConnection(code) && entry.losses++ < maximumLosses) {
    return sendAgain(entry, Transfer::Connection::kept);
  }
  // The place goes back before the next step, which may be to the same host, and the others are
  // served after it, so that a redirect does not queue behind them.
  TransferResult result = entry.transfer->finish(code);
  const std::string host = releaseTransfer(entry, result.multiplexed);
  advance(entry, entry.exchange.received(std::move(result), currentDate()));
  serveWaiting(host);
}

void SessionLoop::sendAgain(Entry& entry, Transfer::Connection connection) {
  URLRequest request = entry.transfer->request();
  dropTransfer(entry);
  send(entry, std::move(request), connection);
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

void SessionLoop::dropTransfer(Entry& entry) {
  if (!entry.transfer) return;
  CURL* const handle = entry.transfer->handle();
  transfers_.erase(handle);
  network_.remove(handle);
  handles_->retire(entry.transfer->takeHandle());
  entry.transfer.reset();
}

std::string SessionLoop::releaseTransfer(Entry& entry, bool multiplexed) {
  dropTransfer(entry);
  slots_.giveBack(entry.host, multiplexed);
  return std::exchange(entry.host, {});
}

void SessionLoop::serveWaiting(const std::string& host) {
  while (TaskCore* task = slots_.next(host)) {
    Entry& entry = *entries_.at(task);
    sendTo(host, entry, *std::exchange(entry.ready, std::nullopt));
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
  Receivers receivers = takeReceivers(entry);
  const std::shared_ptr<TaskCore> task = std::move(entry.task);
  if (entry.purpose == Purpose::refresh) refreshes_.erase(task->request.url.absoluteString());
  entries_.erase(task.get());
  std::erase(held_, task.get());
  delivery.metrics.countOfBytesReceived = task->bytesReceived;
  Receivers unserved;
  if (!delivery.mayBeShared && receivers.size() > 1) {
    unserved.assign(receivers.begin() + 1, receivers.end());
    receivers.resize(1);
  }
  // Before the delivery: then the callback queue takes the filter away from the task.
  auto refresh = std::exchange(delivery.refresh, std::nullopt);
  if (refresh && !receivers.empty()) startRefresh(*std::move(refresh), *receivers.front());
  const bool isPrepared = std::any_of(receivers.begin(), receivers.end(), [](const auto& one) {
    return one->preparation && one->state != State::canceling;
  });
  if (isPrepared) {
    prepare(std::move(receivers), std::move(delivery));
  } else {
    store(std::move(receivers), std::move(delivery));
  }
  for (auto& one : unserved) {
    one->follow(nullptr);
    Exchange exchange(one->request, configuration_);
    start(std::move(one), std::move(exchange), Purpose::answer);
  }
}

// One after the other: who asks for the same finds it done.
void SessionLoop::prepare(Receivers receivers, Delivery delivery) {
  // The session's end waits for it: what runs on the pool still uses the loop.
  preparing_.begin();
  auto shared = std::make_shared<Delivery>(std::move(delivery));
  WorkPool::shared().add([this, receivers = std::move(receivers), shared]() mutable {
    for (const auto& task : receivers) {
      if (!task->preparation || task->state == State::canceling) continue;
      task->preparation(shared->data, shared->response, shared->error);
    }
    store(std::move(receivers), std::move(*shared));
    wakeRunner();
    preparing_.end();
  });
}

void SessionLoop::store(Receivers receivers, Delivery delivery) {
  if (!delivery.freshAnswer) return keep(std::move(receivers), std::move(delivery));
  auto shared = std::make_shared<Delivery>(std::move(delivery));
  // The filters are the host's code, which runs on the callback queue alone.
  callbacks_.add([this, receivers = std::move(receivers), shared]() mutable {
    judge(receivers, *shared);
    if (shared->writes.empty() && receivers.size() == 1) {
      return complete(*receivers.front(), std::move(*shared));
    }
    keep(std::move(receivers), std::move(*shared));
  });
}

void SessionLoop::keep(Receivers receivers, Delivery delivery) {
  if (cache_ == nullptr || delivery.writes.empty()) {
    return addCallbacks(std::move(receivers), std::move(delivery));
  }
  auto writes = std::exchange(delivery.writes, {});
  auto told = Events::hasListener() ? writes : std::vector<URLCache::Change>();
  auto shared = std::make_shared<Delivery>(std::move(delivery));
  cache_->write(std::move(writes), [this, receivers = std::move(receivers), shared,
                                    told = std::move(told)](auto place) mutable {
    if (!told.empty()) tellWhatWasKept(*configuration_.urlCache, told);
    addCallbacks(std::move(receivers), std::move(*shared));
    if (place == CacheThreads::Place::last) wakeRunner();
  });
}

void SessionLoop::addCallbacks(Receivers receivers, Delivery delivery) {
  auto shared = std::make_shared<Delivery>(std::move(delivery));
  for (std::size_t i = 0; i < receivers.size(); ++i) {
    const bool isFirst = i == 0;
    const bool isLast = i + 1 == receivers.size();
    callbacks_.add([task = std::move(receivers[i]), shared, isFirst, isLast] {
      Delivery own = isLast ? std::move(*shared) : *shared;
      if (!isFirst) own.reasonNotKept = nullptr;  // told once
      complete(*task, std::move(own));
    });
  }
}

void SessionLoop::wakeRunner() {
  if (callbacks_.needsRunner()) network_.wake();
}

SessionLoop::Clock::time_point SessionLoop::expiry(const Entry& entry,
                                                   Clock::time_point now) const {
  // Who waits for a place or for the cache is not idle: only the limit of the whole counts.
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
    if (const auto socket = entry.transfer->socket()) {
      network_.giveUpIfSilent(*socket, configuration_.timeoutIntervalForRequest / 2);
    }
    abandonTransfer(entry, std::move(error));
  } else {
    slots_.stopWaiting(entry.task.get());
    deliver(entry, entry.exchange.fail(std::move(error)));
  }
}

}  // namespace paperloom::internal
