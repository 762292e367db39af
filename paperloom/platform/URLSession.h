#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "paperloom/platform/Export.h"
#include "paperloom/platform/URLCache.h"
#include "paperloom/platform/URLRequest.h"
#include "paperloom/platform/URLResponse.h"

namespace paperloom {

namespace internal {
class SessionCore;
class TaskCore;
}  // namespace internal

struct URLSessionConfiguration {
  // Idle time, connecting included: the longest wait without a byte in either direction. The wait
  // for a connection to become free counts for the whole task alone.
  std::chrono::milliseconds timeoutIntervalForRequest = std::chrono::seconds(60);
  // The longest time for a whole task, redirects included.
  std::chrono::milliseconds timeoutIntervalForResource = std::chrono::minutes(10);
  std::shared_ptr<URLCache> urlCache;  // none: nothing is stored and nothing comes from a cache
  int httpMaximumConnectionsPerHost = 6;
  // The largest body handed over, in bytes after decoding.
  std::int64_t maximumBodySize = std::int64_t{32} * 1024 * 1024;
  // A file of PEM certificates trusted beside the system's. Verification itself is always on.
  std::filesystem::path additionalCertificateAuthorities;
  // A proxy URL, for every host. Without one the variables http_proxy, https_proxy, all_proxy and
  // no_proxy count.
  std::string proxy;
};

// What happened to a finished task.
struct URLSessionTaskMetrics {
  enum class Source {
    network,      // the answer came whole from the server
    cache,        // a fresh stored copy, no traffic
    revalidated,  // a stored copy that the server confirmed
    stale,        // a stored copy past its freshness, served as the directives or the policy allow
  };
  Source source = Source::network;
  std::optional<std::chrono::seconds> age;  // of a stored copy when it was served
  std::optional<Date> fetchedAt;            // when the answer, or its last validation, was received
  std::int64_t countOfBytesReceived = 0;    // of bodies, from the network, before decoding
};

// One exchange. Created suspended; safe from any thread.
class PAPERLOOM_EXPORT URLSessionTask {
 public:
  enum class State { suspended, running, canceling, completed };

  static constexpr float lowPriority = 0.25F;
  static constexpr float defaultPriority = 0.5F;
  static constexpr float highPriority = 0.75F;

  // A task that belongs to no session: resume() and cancel() do nothing.
  static std::shared_ptr<URLSessionTask> unattached(URLRequest request);

  ~URLSessionTask();
  URLSessionTask(const URLSessionTask&) = delete;
  URLSessionTask& operator=(const URLSessionTask&) = delete;

  // Starts the exchange; the second call does nothing.
  void resume();
  // Ends it: the completion receives URLError::Code::cancelled, unless it was under way already.
  // That holds for a suspended task, too.
  void cancel();

  // Tasks that wait for a connection start in order of priority, 0 to 1.
  float priority() const;
  void setPriority(float priority);

  State state() const;
  const URLRequest& originalRequest() const;
  // Body bytes received so far, before decoding, and those announced; -1 when not known.
  std::int64_t countOfBytesReceived() const;
  std::int64_t countOfBytesExpectedToReceive() const;
  // Complete once the task's completion has been called.
  URLSessionTaskMetrics metrics() const;

 private:
  friend class URLSession;
  friend class internal::SessionCore;
  explicit URLSessionTask(std::shared_ptr<internal::TaskCore> core);

  std::shared_ptr<internal::TaskCore> core_;
};

// An HTTP client with a response cache: HTTP/1.1 over http and https, HTTP/2 over https where the
// libcurl that is loaded is 8.14.0 or newer, redirects followed (at most 20, never from https to
// http), gzip and deflate decoded, answers stored and reused as a private cache does (RFC 9111).
//
// The threads of a session, two, start with its first task; both wait for the network, and one at
// a time runs callbacks: all of them on this serial callback queue, never on the caller's stack.
// A resumed task may send its request, and look into the cache, on the caller's thread. The
// destructor cancels what is in flight, runs those completions, joins the threads, and no callback
// runs after it returns; a task resumed later, or by one of those completions, never begins. A
// callback may start requests and may release the session: then the other completions run within
// its destructor.
//
// The wire. Host, Connection, Content-Length and the other fields that frame a message or steer a
// connection are the session's own; such fields of a request are left out. A request without
// Accept-Encoding asks for gzip and deflate, or for no coding with a Range. What arrives in these
// codings is handed over and stored decoded, without Content-Encoding and Content-Length; other
// codings and partial contents as they come. An HTTP/2 body that neither a Content-Length nor the
// end of its coding shows to be whole is handed over, but not stored. To another scheme, host or
// port a redirect takes along only fields that say nothing of the user: no Authorization, no
// Cookie, none of a caller's own making; and no body: where that would have to go along, the
// redirect itself is the answer. No cookies are kept, no .netrc is read. A GET or HEAD is sent
// again once, on a fresh connection, when a kept connection ends before the answer begins, and over
// HTTP/2 some times more, when the connection that it shares with others is ended; nothing else ever
// is, and so everything else goes out on a fresh connection. A kept connection on which
// bytes have come that answer nothing is not used again. A body whose chunks or coding break off, or
// break their grammar, is an error.
class PAPERLOOM_EXPORT URLSession {
 public:
  // Called exactly once for a task that was resumed or cancelled. Without an error there are both
  // response and data, if only empty. A body cut off after its header arrives as response and error
  // without data; a failure before the header, and a cancellation, as an error alone.
  using Completion = std::function<void(const std::optional<Data>& data,
                                        const std::optional<HTTPURLResponse>& response,
                                        const std::optional<URLError>& error)>;
  // Asked on the callback queue, just before the completion, whether a complete fresh answer that
  // HTTP would let the cache keep is worth keeping; with false the stored copy stays as it was.
  using StoreFilter = std::function<bool(const HTTPURLResponse& response, const Data& data)>;

  explicit URLSession(URLSessionConfiguration configuration);
  ~URLSession();
  URLSession(const URLSession&) = delete;
  URLSession& operator=(const URLSession&) = delete;

  const URLSessionConfiguration& configuration() const;

  // A suspended task for the request.
  std::shared_ptr<URLSessionTask> dataTask(URLRequest request, Completion completion,
                                           StoreFilter storeFilter = nullptr);

 private:
  std::shared_ptr<internal::SessionCore> core_;
};

}  // namespace paperloom
