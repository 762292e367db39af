#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "paperloom/platform/URLCache.h"
#include "paperloom/platform/internal/base/BatchThread.h"
#include "paperloom/platform/internal/base/Outstanding.h"
#include "paperloom/platform/internal/caching/StoredHops.h"

namespace paperloom::internal {

// The threads of a session that wait for the cache and its disk, so that neither those that start
// tasks nor those of the network do: one looks up, one writes, since what is being written must not
// keep a request from being sent. Safe from any thread.
//
// Answers that arrive together, or while others are being written, are written together. A look-up
// may miss what is about to be written; whoever was told that something is kept, was told after the
// write. Once it has been quiet for a moment, what the cache does best then is done, on neither of
// the two.
class CacheThreads {
 public:
  explicit CacheThreads(std::shared_ptr<URLCache> cache);
  CacheThreads(const CacheThreads&) = delete;
  CacheThreads& operator=(const CacheThreads&) = delete;

  // What the cache can tell without its disk, on the thread that asks; nothing where the look-up
  // goes on on another. `then` runs on the one that looks up, and must neither wait nor call back
  // to a host. While the thread has more to do, it is not to be kept with what another can do.
  enum class Thread {
    idle,
    busy,
    helping,  // the one that called lookUpHere()
  };
  using Found = std::function<void(StoredHops, Thread)>;
  std::optional<StoredHops> lookUp(URLRequest request, Found then);
  // Makes a look-up on this thread that its own thread has not got to yet, if there is one. Not
  // while the disk is slow: then the thread that helps would be missed elsewhere.
  bool lookUpHere();

  // `then` is called after the write and adds what follows from it to a queue that it shares with
  // the others of its time; the last of them is told to see to that queue.
  enum class Place { among, last };
  using Written = std::function<void(Place)>;
  void write(std::vector<URLCache::Change> changes, Written then);

  // Makes the writes that are left and ends the threads; to be called before the destruction.
  // Look-ups are dropped from then on; writes happen on the thread that asks.
  void finish();

 private:
  struct LookUp {
    HopsLookUp hops;
    Found then;
  };
  struct Write {
    std::vector<URLCache::Change> changes;
    Written then;
  };

  void find(std::vector<LookUp> lookUps);
  void find(LookUp& one, Thread thread);
  void apply(std::vector<Write> writes);
  void settle();

  const std::shared_ptr<URLCache> cache_;
  Outstanding settling_;
  std::atomic<bool> isDiskQuick_ = false;  // as the last look-up found
  BatchThread<LookUp> reader_;
  BatchThread<Write> writer_;
};

}  // namespace paperloom::internal
