#include "paperloom/platform/internal/session/SessionCore.h"

#include <algorithm>
#include <utility>

#include "paperloom/platform/internal/base/QuietThread.h"
#include "paperloom/platform/internal/http/RequestRules.h"

namespace paperloom::internal {
namespace {

URLSessionConfiguration withinRange(URLSessionConfiguration configuration) {
  using std::chrono::milliseconds;
  constexpr milliseconds shortest(1);
  constexpr milliseconds longest = std::chrono::hours(24 * 7);
  auto& idle = configuration.timeoutIntervalForRequest;
  auto& whole = configuration.timeoutIntervalForResource;
  idle = std::clamp(idle, shortest, longest);
  whole = std::clamp(whole, shortest, longest);
  configuration.maximumBodySize = std::max<std::int64_t>(0, configuration.maximumBodySize);
  return configuration;
}

}  // namespace

SessionCore::SessionCore(URLSessionConfiguration configuration)
    : configuration_(std::move(configuration)),
      limits_(withinRange(configuration_)),
      cache_(limits_.urlCache ? std::make_unique<CacheThreads>(limits_.urlCache) : nullptr) {}

SessionCore::~SessionCore() = default;

CurlLoop* SessionCore::network() {
  const MutexLock lock(mutex_);
  return network_;
}

bool SessionCore::makeLoop() {
  const auto callbacks = callbacks_;  // outlives a session that a completion ends
  for (;;) {
    auto loop = std::make_unique<SessionLoop>(
        limits_, *callbacks_, cache_.get(), [this](auto task, auto hops, auto thread) {
          using Thread = CacheThreads::Thread;
          post({Command::found, std::move(task), std::move(hops)},
               thread == Thread::helping ? Poster::worker : Poster::cacheThread,
               thread != Thread::busy);
        });
    if (loop->isUsable()) {
      const MutexLock whole(loopMutex_);
      const MutexLock lock(mutex_);
      network_ = &loop->network();
      loop_ = std::move(loop);
      attended_ = true;
      return true;
    }
    // Out of descriptors: these tasks fail, the next may succeed.
    std::vector<Posted> posted;
    {
      const MutexLock lock(mutex_);
      while (inbox_.empty() && !closing_) posted_.wait(mutex_);
      posted = std::exchange(inbox_, {});
    }
    failPosted(std::move(posted));
    callbacks->run();
    if (callbacks->isFinished()) return false;
    const MutexLock lock(mutex_);
    if (closing_ && inbox_.empty()) return false;
  }
}

void SessionCore::failPosted(std::vector<Posted> posted) {
  for (Posted& one : posted) {
    if (one.command != Command::start) continue;
    callbacks_->add([task = std::move(one.task)] {
      auto error = makeError(URLError::Code::unknown, "there are no descriptors for the session");
      complete(*task, Delivery{.error = std::move(error)});
    });
  }
}

// A completion may end the session, and then `core` is gone when run() returns.
void SessionCore::work(SessionCore& core, std::size_t worker,
                       std::shared_ptr<CallbackQueue> callbacks) {
  while (core.turn(worker)) {
    do {
      callbacks->run();
      if (callbacks->isFinished()) return;
    } while (core.cache_ && core.cache_->lookUpHere());
  }
  callbacks->run();
}

void SessionCore::startSecondWorker() {
  const MutexLock lock(mutex_);
  network_->wake();  // for what has been posted meanwhile
  if (closing_) return;
  threads_[1] = startQuietThread([this, callbacks = callbacks_] { work(*this, 1, callbacks); });
}

bool SessionCore::post(Command command, const std::shared_ptr<TaskCore>& task) {
  return post({command, task}, Poster::host, command == Command::start);
}

bool SessionCore::post(Posted posted, Poster poster, bool mayObeyDirectly) {
  if (mayObeyDirectly && obeyDirectly(posted, poster)) return true;
  CurlLoop* toWake = nullptr;
  {
    const MutexLock lock(mutex_);
    if (closing_) return false;
    inbox_.push_back(std::move(posted));
    if (!threads_[0].joinable()) {
      threads_[0] = startQuietThread([this, callbacks = callbacks_] {
        if (!makeLoop()) return;
        startSecondWorker();
        work(*this, 0, callbacks);
      });
    }
    if (network_ == nullptr) {
      posted_.notifyOne();
    } else if (!std::exchange(attended_, true)) {
      toWake = network_;
    }
  }
  if (toWake != nullptr) toWake->wake();
  return true;
}

// On the thread of a host a request is only sent where that touches no disk: the certificates for
// TLS lie there.
bool SessionCore::obeyDirectly(Posted& posted, Poster poster) {
  const bool mayReadDisk = posted.task->request.url.scheme() != "http" ||
                           !limits_.additionalCertificateAuthorities.empty();
  if (poster == Poster::host && mayReadDisk) return false;
  if (!loopMutex_.try_lock()) return false;
  bool isFree = false;
  {
    const MutexLock lock(mutex_);
    isFree = loop_ && !ended_ && !closing_ && inbox_.empty();
  }
  if (isFree) {
    std::optional<BrokenPipeShield> shield;
    if (poster == Poster::host) shield.emplace();  // the session's own threads take no signals
    loop_->obey(std::move(posted));
    if (loop_->hasUnsent()) loop_->settle();
    announceNextLook();
  }
  loopMutex_.unlock();
  // The answer may be there already.
  const bool leavesCallbacks = isFree && poster != Poster::worker;
  if (leavesCallbacks && callbacks_->needsRunner()) network()->wake();
  return isFree;
}

bool SessionCore::turn(std::size_t worker) {
  CurlLoop::Ready ready;
  waitForNetwork(worker, ready);
  // Loads libcurl and reads the TLS library's settings from the disk: not under the lock.
  const bool opens = mustOpen_.exchange(false);
  if (opens) prepareLibcurl();
  const MutexLock loop(loopMutex_);
  if (ended_) return false;
  if (opens) {
    loop_->openNetwork();
    isOpening_ = false;
  }
  loop_->network().moveOn(ready);
  // Callers that never stop must not keep the network waiting.
  constexpr int rounds = 8;
  bool isAllDone = false;
  for (int i = 0; i < rounds && !isAllDone; ++i) {
    bool closing = false;
    std::vector<Posted> posted = takePosted(closing);
    if (closing) {
      loop_->end(std::move(posted));
      ended_ = true;
      loop_->network().wake();  // the other worker
      return false;
    }
    for (Posted& one : posted) loop_->obey(std::move(one));
    loop_->settle();
    isAllDone = isInboxEmpty();
  }
  announceNextLook();
  if (!isAllDone) loop_->network().wake();
  return true;
}

void SessionCore::waitForNetwork(std::size_t worker, CurlLoop::Ready& ready) {
  CurlLoop* waited = nullptr;
  Clock::time_point until;
  {
    const MutexLock lock(mutex_);
    if (closing_) return;
    until = nextLook_;
    waits_[worker] = until;
    waited = network_;
  }
  waited->wait(until, ready);
  const MutexLock lock(mutex_);
  waits_[worker].reset();
}

std::vector<SessionCore::Posted> SessionCore::takePosted(bool& closing) {
  const MutexLock lock(mutex_);
  attended_ = true;
  closing = closing_;
  return std::exchange(inbox_, {});
}

bool SessionCore::isInboxEmpty() {
  const MutexLock lock(mutex_);
  attended_ = !inbox_.empty();
  return inbox_.empty();
}

void SessionCore::announceNextLook() {
  if (loop_->needsNetwork() && !std::exchange(isOpening_, true)) mustOpen_ = true;
  bool mustWake = mustOpen_;  // also when the last wake for it has been taken for another
  {
    const MutexLock lock(mutex_);
    nextLook_ = loop_->nextLook();
    for (const auto& wait : waits_) mustWake = mustWake || (wait && *wait > nextLook_);
  }
  if (mustWake) loop_->network().wake();
}

// The workers have ended, but for the one that may be asking.
void SessionCore::waitForPreparations() {
  SessionLoop* loop = nullptr;
  {
    const MutexLock lock(loopMutex_);
    loop = loop_.get();
  }
  if (loop != nullptr) loop->waitForPreparations();
}

void SessionCore::shutDown() {
  std::array<std::thread, workers> threads;
  CurlLoop* toWake = nullptr;
  {
    const MutexLock lock(mutex_);
    closing_ = true;
    threads = std::exchange(threads_, {});
    toWake = network_;
  }
  posted_.notifyAll();
  if (toWake != nullptr) toWake->wake();
  std::thread* own = nullptr;
  for (std::thread& thread : threads) {
    if (thread.get_id() == std::this_thread::get_id()) {
      own = &thread;
    } else if (thread.joinable()) {
      thread.join();
    }
  }
  waitForPreparations();
  if (cache_) cache_->finish();
  callbacks_->finish();
  if (own != nullptr) own->detach();
}

}  // namespace paperloom::internal
