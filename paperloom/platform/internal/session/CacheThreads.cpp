#include "paperloom/platform/internal/session/CacheThreads.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "paperloom/platform/internal/base/WorkPool.h"

namespace paperloom::internal {

CacheThreads::CacheThreads(std::shared_ptr<URLCache> cache)
    : cache_(std::move(cache)),
      reader_([this](auto lookUps) { find(std::move(lookUps)); }),
      writer_([this](auto writes) { apply(std::move(writes)); }, [this] { settle(); }) {}

void CacheThreads::lookUp(URLRequest request, Found then) {
  LookUp lookUp{std::move(request), std::move(then)};
  reader_.add(lookUp);
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
  for (LookUp& one : lookUps) {
    const bool isLast = &one == &lookUps.back();
    one.then(lookUpHops(*cache_, std::move(one.request)), isLast ? Thread::idle : Thread::busy);
  }
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
