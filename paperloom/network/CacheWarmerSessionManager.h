#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include "paperloom/network/CacheWarmerRequestResult.h"
#include "paperloom/platform/Export.h"
#include "paperloom/platform/URL.h"
#include "paperloom/platform/URLCache.h"
#include "paperloom/platform/URLSession.h"

namespace paperloom {

class TaskCounter;

// Fetches URLs for a cache to keep, one connection to a host at a time and at low priority. What is
// kept is decided by the rules of HTTP caching; but no error takes the place of a document, and no
// web page that of another kind of document: captive portals send such. Safe from any thread.
class PAPERLOOM_EXPORT CacheWarmerSessionManager {
 public:
  // May be empty: the answer is dropped then.
  using Completion = std::function<void(CacheWarmerRequestResult result)>;

  // A null cache stops the program.
  explicit CacheWarmerSessionManager(std::shared_ptr<URLCache> cache);
  // Over a session of the host's own making, which has a cache; its connections to a host are
  // limited to one all the same.
  explicit CacheWarmerSessionManager(URLSessionConfiguration configuration);
  ~CacheWarmerSessionManager();

  // A cached copy with a status of 200 to 399 answers at once, on the caller's thread, and no task
  // is returned; finding out may wait for the disk. Otherwise, or with `forceRefresh`, the started
  // task; its answer arrives on the session's callback queue. A forced request asks the server even
  // when the copy is still fresh (RFC 9111 section 5.2.1.4).
  std::shared_ptr<URLSessionTask> saveToCache(const URL& url, bool forceRefresh,
                                              Completion completion);

  std::int64_t taskCount() const;
  const URLSession& session() const { return session_; }
  const std::shared_ptr<URLCache>& cache() const { return cache_; }

 private:
  std::shared_ptr<URLCache> cache_;
  std::shared_ptr<TaskCounter> taskCounter_;
  URLSession session_;
};

}  // namespace paperloom
