#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "paperloom/platform/Export.h"
#include "paperloom/platform/URLRequest.h"
#include "paperloom/platform/URLResponse.h"

namespace paperloom {

namespace internal {
class URLCacheStore;
}  // namespace internal

// Keeps HTTP answers in memory and on disk, each with a capacity in bytes, least recently used out
// first. An answer larger than 5 % of a capacity is not kept there and evicts nothing, but the
// copy that it outdates goes. Safe from any thread, and safe with other caches on the same path in
// this process and in others, each of which sees at once what the others store and remove; they
// should agree on the disk capacity, since each evicts down to its own. A damaged file or a full
// disk is a miss and never an error to the caller; no call waits longer than 250 ms for locks. What
// storeCachedResponse() has put on disk survives the end of the process at any moment. When storing
// or removing fails, the older copy is not served either. A file that cannot be written is read;
// links, devices and what belongs to another user are left alone, and the cache stays in memory.
//
// Answers are kept under the request's URL without its fragment; of the variants of one URL that
// `Vary` sets apart (RFC 9111 section 4.1), 16 at most, the newest one that fits a request is
// chosen. One that varies on * is kept for every request; no session uses it without asking the
// server, but it can be read offline. Of the request only a SHA-256 of the values that `Vary` names
// is kept.
//
// A child process made by fork() alone must not use the paths that its parent has in use.
class PAPERLOOM_EXPORT URLCache {
 public:
  // In memory only, with the platform's default capacity of 4 MB.
  URLCache();
  // `diskPath` is a folder name relative to the application's caches folder, or an absolute path.
  // A disk capacity of 0 or an empty path keeps the cache in memory only. Nothing is opened before
  // first use.
  URLCache(std::int64_t memoryCapacity, std::int64_t diskCapacity, std::filesystem::path diskPath);
  ~URLCache();
  URLCache(const URLCache&) = delete;
  URLCache& operator=(const URLCache&) = delete;

  // The stored answer for the request, whatever its freshness; counts as a use of it. Nothing for
  // methods other than GET and HEAD.
  std::optional<CachedURLResponse> cachedResponse(const URLRequest& request) const;

  // The same where that can be told without the disk: an answer in memory, or that nothing is kept
  // for the request. Nothing where only the disk can tell; that is so at first, and whenever no
  // call has looked at the disk for a while. Never waits. Counts as a look-up, and as a use, only
  // when it tells.
  struct Known {
    std::optional<CachedURLResponse> response;
  };
  std::optional<Known> cachedResponseAtOnce(const URLRequest& request) const;

  // The one that the request ends at by way of stored redirects, followed as a session does.
  // Nothing when one of them leads to what is not stored, or nowhere.
  std::optional<CachedURLResponse> cachedResponseThroughRedirects(URLRequest request) const;

  // Keeps `response`, replacing the variants that fit the request. Does nothing for methods other
  // than GET and HEAD; both share their entries. No rule of HTTP is asked here: that is the
  // session's business.
  void storeCachedResponse(const CachedURLResponse& response, const URLRequest& request);

  // Removes every variant stored for the request's URL.
  void removeCachedResponse(const URLRequest& request);

  // Both of these in order: a response to be kept, or without one what is kept for the request to
  // be removed. Much cheaper than one by one, for they share their transactions: what has been
  // applied when it returns survives the end of the process.
  struct Change {
    URLRequest request;
    std::optional<CachedURLResponse> response;
  };
  void apply(std::vector<Change> changes);
  // Does what is best done in a quiet moment. What apply() has written to the file's log goes into
  // the file once it is much, which storeCachedResponse() and removeCachedResponse() see to
  // themselves, and apply() when it can be put off no longer. What the file holds is learnt, for
  // cachedResponseAtOnce(). May take as long as the disk needs; looking up and storing go on beside
  // it.
  void settle();
  // Leaves nothing behind in memory, in the file, its log or its free pages.
  void removeAllCachedResponses();

  std::int64_t memoryCapacity() const;
  std::int64_t diskCapacity() const;
  // May be called while the cache is in use; a smaller capacity evicts at once.
  void setMemoryCapacity(std::int64_t bytes);
  void setDiskCapacity(std::int64_t bytes);
  std::int64_t currentMemoryUsage() const;
  std::int64_t currentDiskUsage() const;
  // Where the cache lies on disk; empty when it is in memory only.
  std::filesystem::path diskFile() const;

  // What has been asked of this cache since it was made.
  struct Statistics {
    std::int64_t lookUps = 0;
    std::int64_t memoryHits = 0;
    std::int64_t diskHits = 0;
  };
  Statistics statistics() const;

  // What the cache holds, most recently used first; does not count as a use. The answers come
  // without their bodies; `size` counts key, header and body.
  struct Entry {
    CachedURLResponse response;
    std::int64_t size = 0;
    bool onDisk = false;
  };
  std::vector<Entry> entries() const;

 private:
  std::unique_ptr<internal::URLCacheStore> store_;
};

}  // namespace paperloom
