#pragma once

#include <memory>

#include "paperloom/platform/Export.h"
#include "paperloom/platform/URLSessionConfiguration.h"
#include "paperloom/platform/URLSessionTask.h"

namespace paperloom {

namespace internal {
class SessionCore;
}  // namespace internal

// An HTTP client with a response cache: HTTP/1.1 over http and https, HTTP/2 over https where the
// libcurl that is loaded is 8.14.0 or newer, redirects followed (at most 20, never from https to
// http), gzip, deflate and brotli decoded, answers stored and reused as a private cache does (RFC
// 9111).
//
// The threads of a session start with its first task. Two wait for the network, and one at a time
// runs callbacks: all of them on this serial callback queue, never on the caller's stack. A third
// looks into the cache and writes to it, so that nobody else waits for a disk: each request is
// looked up once a hop before it goes out, and what its answer changes is on the disk before its
// completion runs. A resumed task may send its request on the caller's thread. The
// destructor cancels what is in flight, runs those completions, joins the threads, and no callback
// runs after it returns; a task resumed later, or by one of those completions, never begins. A
// callback may start requests and may release the session: then the other completions run within
// its destructor.
//
// The wire. Host, Connection, Content-Length and the other fields that frame a message or steer a
// connection are the session's own; such fields of a request are left out. A request without
// Accept-Encoding asks for gzip, deflate and br, or for no coding with a Range. What arrives in
// these codings is handed over and stored decoded, without Content-Encoding and Content-Length;
// other codings and partial contents as they come. An HTTP/2 body that neither a Content-Length nor
// the end of its coding shows to be whole is handed over, but not stored. To another scheme, host
// or port a redirect takes along only fields that say nothing of the user: no Authorization, no
// Cookie, none of a caller's own making; and no body: where that would have to go along, the
// redirect itself is the answer. No cookies are kept, no .netrc is read. A GET or HEAD is sent
// again once, on a fresh connection, when a kept connection ends before the answer begins, and over
// HTTP/2 some times more, when the connection that it shares with others is ended; nothing else
// ever is, and so everything else goes out on a fresh connection. A kept connection on which bytes
// have come that answer nothing is not used again. A body whose chunks or coding break off, or
// break their grammar, is an error.
class PAPERLOOM_EXPORT URLSession {
 public:
  using Completion = URLSessionTask::Completion;
  using StoreFilter = URLSessionTask::StoreFilter;
  using Preparation = URLSessionTask::Preparation;

  explicit URLSession(URLSessionConfiguration configuration);
  ~URLSession();
  URLSession(const URLSession&) = delete;
  URLSession& operator=(const URLSession&) = delete;

  const URLSessionConfiguration& configuration() const;

  // The request with the configuration's default fields: as it goes out, and as the cache knows it.
  URLRequest withDefaultHeaders(URLRequest request) const;

  // A suspended task for the request, which gets the default fields.
  std::shared_ptr<URLSessionTask> dataTask(URLRequest request, Completion completion,
                                           StoreFilter storeFilter = nullptr,
                                           Preparation preparation = nullptr);

 private:
  std::shared_ptr<internal::SessionCore> core_;
};

}  // namespace paperloom
