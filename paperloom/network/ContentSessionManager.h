#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

#include "paperloom/network/ContentSessionManagerProtocol.h"
#include "paperloom/platform/Export.h"
#include "paperloom/platform/Guarded.h"

namespace paperloom {

class OfflineSets;
class TaskCounter;

// GETs and POSTs JSON over a session with a URL cache of its own. When the server answers a GET
// with a status outside 200 to 399, or not at all, the copy that was stored before the request
// takes its place: so the last documents can be read offline. A copy has such a status itself; one
// that is stored as a redirect is followed. Where sets are kept beside the cache, the newer copy of
// the two counts. A fresh document replaces the stored one only after its
// parser has accepted it.
//
// Completions run on the session's callback queue. Safe from any thread. No request waits for the
// disk: the session looks for the copy on a thread of its own.
class PAPERLOOM_EXPORT ContentSessionManager final : public ContentSessionManagerProtocol {
 public:
  static constexpr std::int64_t megabyte = 1'048'576;

  // What the manager without arguments has, for a host to change before it makes its own: 8 MB in
  // memory and 100 MB on disk below "url-cache"; idle timeout 20 seconds.
  static URLSessionConfiguration defaultConfiguration();

  ContentSessionManager();
  // The same over a cache of the host's own; null stops the program.
  explicit ContentSessionManager(std::shared_ptr<URLCache> cache);
  // Over a session of the host's own making; without a cache in it, one in memory is taken.
  explicit ContentSessionManager(URLSessionConfiguration configuration);
  ~ContentSessionManager() override;

  // The failure texts are "no network error" for a GET and "Error:" for a POST, each followed by
  // " : " and the session's description of the failure when there is one.
  std::shared_ptr<URLSessionTask> postJSONData(
      const URL& url, Data body, std::function<void(PostRequestResult result)> completion) override;

  std::shared_ptr<URLCache> contentSessionCache() const override { return contentSessionCache_; }

  // Requests started and not yet completed.
  std::int64_t taskCount() const;

  const URLSession& session() const { return session_; }

  // What requests from now on fall back on beside the cache; null for nothing, as at first.
  void setOfflineSets(std::shared_ptr<OfflineSets> sets);

  // The cache's copy that stands in for `url` when the server gives no answer, by way of stored
  // redirects; it may be of any age. May wait for the disk.
  std::optional<CachedURLResponse> offlineCopy(const URL& url) const;

  // What a GET of `url` would be answered with at once: a copy in memory that is fresh and a whole
  // document, of status 200, with its age. Counts as a use of it. Never waits.
  struct FreshCopy {
    CachedURLResponse copy;
    std::optional<std::chrono::seconds> age;
  };
  std::optional<FreshCopy> freshCopyAtOnce(const URL& url) const;

 protected:
  std::shared_ptr<URLSessionTask> getData(const URL& url, ErasedParser parser,
                                          ErasedCompletion completion, Parsing parsing) override;
  std::shared_ptr<URLSessionTask> getDataFor(URLRequest request, ErasedParser parser,
                                             ErasedCompletion completion, Parsing parsing) override;

 private:
  struct Get;
  class SharedParses;

  std::shared_ptr<URLCache> contentSessionCache_;
  std::shared_ptr<TaskCounter> taskCounter_;
  std::shared_ptr<SharedParses> parses_;
  Guarded<std::shared_ptr<OfflineSets>> offlineSets_;
  URLSession session_;
};

}  // namespace paperloom
