#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <thread>
#include <vector>

#include "paperloom/platform/Mutex.h"
#include "paperloom/platform/URLCache.h"

namespace paperloom::internal {

// What the cache holds for a request and for what its stored redirects lead to, a hop each.
struct StoredHop {
  URLRequest request;
  std::optional<CachedURLResponse> stored;
};
using StoredHops = std::vector<StoredHop>;

// The thread of a session that waits for the cache and its disk, so that neither the threads that
// start tasks nor those of the network do. Safe from any thread; started with the first job.
//
// It takes everything that has been asked for at once: first it looks up, then it writes, so that
// answers that arrive together are kept together. A look-up may therefore miss what was to be
// written before it; whoever was told that something is kept, was told after the write.
class CacheThread {
 public:
  explicit CacheThread(std::shared_ptr<URLCache> cache);
  ~CacheThread();  // after finish()
  CacheThread(const CacheThread&) = delete;
  CacheThread& operator=(const CacheThread&) = delete;

  // `then` runs on this thread, and must neither wait nor call back to a host.
  using Found = std::function<void(StoredHops)>;
  void lookUp(URLRequest request, Found then);
  using Written = std::function<void()>;
  void write(std::vector<URLCache::Change> changes, Written then);

  // Makes the writes that are left and ends the thread. Look-ups are dropped from then on; writes
  // happen on the thread that asks.
  void finish();

 private:
  struct LookUp {
    URLRequest request;
    Found then;
  };
  struct Write {
    std::vector<URLCache::Change> changes;
    Written then;
  };

  void startIfNeeded() PAPERLOOM_REQUIRES(mutex_);
  void work();
  StoredHops find(URLRequest request);
  void apply(std::vector<Write> writes);

  const std::shared_ptr<URLCache> cache_;

  Mutex mutex_;
  ConditionVariable asked_;
  std::vector<LookUp> lookUps_ PAPERLOOM_GUARDED_BY(mutex_);
  std::vector<Write> writes_ PAPERLOOM_GUARDED_BY(mutex_);
  bool finished_ PAPERLOOM_GUARDED_BY(mutex_) = false;
  std::thread thread_ PAPERLOOM_GUARDED_BY(mutex_);
};

}  // namespace paperloom::internal
