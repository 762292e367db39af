#include "paperloom/platform/internal/session/CacheThread.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "paperloom/platform/internal/base/QuietThread.h"
#include "paperloom/platform/internal/http/RequestRules.h"

namespace paperloom::internal {

CacheThread::CacheThread(std::shared_ptr<URLCache> cache) : cache_(std::move(cache)) {}

CacheThread::~CacheThread() = default;

void CacheThread::startIfNeeded() {
  if (!thread_.joinable()) thread_ = startQuietThread([this] { work(); });
}

void CacheThread::lookUp(URLRequest request, Found then) {
  {
    const MutexLock lock(mutex_);
    if (finished_) return;
    lookUps_.push_back({std::move(request), std::move(then)});
    startIfNeeded();
  }
  asked_.notifyOne();
}

void CacheThread::write(std::vector<URLCache::Change> changes, Written then) {
  {
    const MutexLock lock(mutex_);
    if (!finished_) {
      writes_.push_back({std::move(changes), std::move(then)});
      startIfNeeded();
      asked_.notifyOne();
      return;
    }
  }
  std::vector<Write> one;
  one.push_back({std::move(changes), std::move(then)});
  apply(std::move(one));
}

void CacheThread::finish() {
  std::thread thread;
  {
    const MutexLock lock(mutex_);
    finished_ = true;
    thread = std::move(thread_);
  }
  asked_.notifyOne();
  if (thread.joinable()) thread.join();
}

void CacheThread::work() {
  const BrokenPipeShield shield;
  for (;;) {
    std::vector<LookUp> lookUps;
    std::vector<Write> writes;
    {
      const MutexLock lock(mutex_);
      while (!finished_ && lookUps_.empty() && writes_.empty()) asked_.wait(mutex_);
      if (finished_) lookUps_.clear();
      if (finished_ && writes_.empty()) return;
      lookUps = std::exchange(lookUps_, {});
      writes = std::exchange(writes_, {});
    }
    for (LookUp& one : lookUps) one.then(find(std::move(one.request)));
    apply(std::move(writes));
  }
}

StoredHops CacheThread::find(URLRequest request) {
  StoredHops hops;
  while (hops.size() <= maximumRedirects) {
    StoredHop hop{std::move(request), std::nullopt};
    hop.stored = cache_->cachedResponse(hop.request);
    hops.push_back(std::move(hop));
    const StoredHop& last = hops.back();
    if (!last.stored || !last.request.followsRedirects) break;
    auto target = redirectTarget(last.request, last.stored->response);
    if (!target || !target->request) break;
    request = *std::move(target->request);
  }
  return hops;
}

void CacheThread::apply(std::vector<Write> writes) {
  std::vector<URLCache::Change> changes;
  for (Write& write : writes) {
    std::move(write.changes.begin(), write.changes.end(), std::back_inserter(changes));
  }
  if (!changes.empty()) cache_->apply(changes);
  for (const Write& write : writes) write.then();
}

}  // namespace paperloom::internal
