#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <utility>

#include "paperloom/platform/Data.h"
#include "paperloom/platform/HTTPHeaders.h"
#include "paperloom/platform/URL.h"

namespace paperloom {

// How a request uses its session's cache.
enum class URLRequestCachePolicy {
  useProtocolCachePolicy,        // as HTTP caching says (RFC 9111)
  reloadIgnoringLocalCacheData,  // never answer from the cache; the answer may be stored
  returnCacheDataElseLoad,       // a stored copy of any age, else the network
  returnCacheDataDontLoad,       // a stored copy of any age, else an error; never the network
  reloadRevalidatingCacheData,   // a stored copy only after the server has confirmed it
};

// One HTTP request: a plain value. Only http and https URLs can be sent. Names and values with
// control characters are refused when the request is sent.
struct URLRequest {
  explicit URLRequest(URL requestURL) : url(std::move(requestURL)) {}

  URL url;
  std::string method = "GET";
  HTTPHeaders headers;  // repeated names are sent as they stand
  std::optional<Data> body;
  URLRequestCachePolicy cachePolicy = URLRequestCachePolicy::useProtocolCachePolicy;
  // With useProtocolCachePolicy, what counts in place of the freshness that the server gives its
  // answers: a stored copy that was fetched or confirmed no longer ago is the answer, and an older
  // one is asked after. Errors are always asked after, and so is what an account was told (a
  // request with Authorization) once it is stale.
  std::optional<std::chrono::seconds> refreshIfOlderThan;
  bool followsRedirects = true;  // false hands the redirect answer itself to the caller
  // Hands a redirect to another scheme, host or port to the caller: for requests whose answer
  // counts only from the origin that they were meant for.
  bool staysAtOrigin = false;
  // Sends nothing where an equal request of the session is under way, but takes its answer: one
  // with the same URL, fragment included, the same header fields, and the same of everything else
  // here; for GET without a body. Each task keeps its own completion, filter, preparation, progress
  // and cancellation; the request ends early when all have cancelled, and has the highest of their
  // priorities. Of an answer from the server that no cache may keep (RFC 9111 section 3: no-store,
  // 206, a status without a lifetime and the like), or that varies on *, only the first has the
  // use: the others are sent then, each for itself. An answer out of the cache, and a failure to
  // get any, are everybody's.
  bool sharesAnswer = false;
};

}  // namespace paperloom
