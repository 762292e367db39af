#include "paperloom/platform/internal/session/CacheThreads.h"

#include <algorithm>
#include <chrono>
#include <iterator>
#include <utility>

#include "paperloom/platform/internal/base/WorkPool.h"

namespace paperloom::internal {

CacheThreads::CacheThreads(std::shared_ptr<URLCache> cache)
    : cache_(std::move(cache)),
      reader_([this](auto lookUps) { find(std::move(lookUps)); }, [this] { settle(); }),
      writer_([this](auto writes) { apply(std::move(writes)); }, [this] { settle(); }) {}

std::optional<StoredHops> CacheThreads::lookUp(URLRequest request, Found then) {
  LookUp lookUp{HopsLookUp(std::move(request)), std::move(then)};
  if (lookUp.hops.goOnAtOnce(*cache_)) return lookUp.hops.take();
  reader_.add(lookUp);
  return std::nullopt;
}

bool CacheThreads::lookUpHere() {
  if (!isDiskQuick_) return false;
  auto one = reader_.takeOne();
  if (one) find(*one, Thread::helping);
  return one.has_value();
}

void CacheThreads::write(std::vector<URLCache::Change> changes, Written then) {
  Write write{std::move(changes), std::move(then)};
  if (writer_.add(write)) return;
  std::vector<Write> one;
  one.push_back(std::move(write));
  apply(std::move(one));
}

void CacheThreads::finish() {
  reader_.finish(BatchThread<LookUp>::Left::dropped);
  writer_.finish(BatchThread<Write>::Left::done);
  settling_.waitForAll();
}

void CacheThreads::find(std::vector<LookUp> lookUps) {
  for (LookUp& one : lookUps) find(one, &one == &lookUps.back() ? Thread::idle : Thread::busy);
}

void CacheThreads::find(LookUp& one, Thread thread) {
  constexpr auto quick = std::chrono::milliseconds(1);
  const auto begun = std::chrono::steady_clock::now();
  one.hops.goOn(*cache_);
  isDiskQuick_ = std::chrono::steady_clock::now() - begun < quick;
  one.then(one.hops.take(), thread);
}

void CacheThreads::apply(std::vector<Write> writes) {
  std::vector<URLCache::Change> changes;
  for (Write& write : writes) {
    std::move(write.changes.begin(), write.changes.end(), std::back_inserter(changes));
  }
  if (!changes.empty()) cache_->apply(std::move(changes));
  for (const Write& write : writes) {
    write.then(&write == &writes.back() ? Place::last : Place::among);
  }
}

void CacheThreads::settle() {
  settling_.begin();
  WorkPool::shared().add([this] {
    cache_->settle();
    settling_.end();
  });
}

}  // namespace paperloom::internal
