#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "paperloom/platform/Data.h"
#include "paperloom/platform/Date.h"
#include "paperloom/platform/HTTPHeaders.h"
#include "paperloom/platform/URL.h"
#include "paperloom/platform/URLRequest.h"
#include "paperloom/platform/URLResponse.h"

// The rules of HTTP caching (RFC 9111) for a private cache, as pure functions: what a request may
// be answered with, what may be kept, what a validation or an unsafe request changes. Nothing here
// reads a clock, a cache or the network; every function is safe on any thread and takes whatever a
// server may send. Which variant of a URL fits a request (section 4.1) is decided before, by the
// cache that hands over `stored`.
namespace paperloom::internal {

// What to do with a request before anything is sent.
struct CachePlan {
  enum class Action {
    serveStored,     // answerFromStored() is the answer; no traffic
    revalidate,      // send with `conditions` set; a 304 confirms the stored answer
    send,            // send as it stands
    gatewayTimeout,  // answer 504 (only-if-cached and nothing fits, section 5.2.1.7)
    unavailable,     // the policy forbids the network and nothing is stored
  };

  Action action = Action::send;
  bool stale = false;                       // serveStored hands out a copy past its freshness
  bool revalidateInBackground = false;      // serve now, then send with `conditions` for the cache
  std::optional<std::chrono::seconds> age;  // of the stored answer, when there is one
  std::optional<std::chrono::seconds> lifetime;  // its freshness lifetime
  HTTPHeaders conditions;  // to set on the request when it is sent, now or in the background, each
                           // in place of the request's fields of that name
  std::string reason;      // why, in the words of the rules, as one clause
};

// Sections 4, 4.2, 4.3.1, 5.2.1, 5.4 and the request's cache policy. `stored` is the stored answer
// that fits the request, or null.
CachePlan planRequest(const URLRequest& request, const CachedURLResponse* stored, Date now);

// Whether a 304 confirms `stored` (section 4.3.4): always when the plan's own conditions were sent,
// which name no other answer; with conditions of the caller's only when it carries the validators
// of `stored`. A 304 to the caller's own conditions is the caller's answer either way.
bool confirmsStored(const CachePlan& plan, const CachedURLResponse& stored,
                    const HTTPURLResponse& notModified);

// The stored answer brought up to date by a 304, or by a HEAD answer that describes it (sections
// 3.2, 4.3.4, 4.3.5): its fields replaced by those received, but for the ones that describe the
// stored bytes; its body kept; its times those of the validation. Ask mayStore() about the result
// before keeping it: the confirmation may have brought no-store.
CachedURLResponse entryAfterValidation(const CachedURLResponse& stored,
                                       const HTTPURLResponse& confirmation, Date requestTime,
                                       Date responseTime);

// The answer to hand out for `request` when it is answered with `stored` (sections 4 and 5.1):
// with its Age, as 304 when the request's own conditions ask for no more, as 206 or 416 for one
// byte range, without a body for HEAD. `validated` says that the server has just confirmed it.
struct StoredAnswer {
  HTTPURLResponse response;
  Data data;
};
StoredAnswer answerFromStored(const URLRequest& request, const CachedURLResponse& stored, Date now,
                              bool validated = false);

// Whether the answer may be kept (section 3). `complete` says that the whole body arrived. A POST
// answer that may be kept is kept, after the invalidation, as the answer to a GET of the same URL
// (RFC 9110 section 9.3.3).
bool mayStore(const URLRequest& request, const HTTPURLResponse& response, bool complete);

// The entry to keep for an answer that may be kept, without the fields that belong to the
// connection or to a proxy (section 3.1).
CachedURLResponse entryToStore(const HTTPURLResponse& response, Data data, Date requestTime,
                               Date responseTime);

// Whether a stored answer may be handed out because the server failed: with a status, or, without
// one, on the way (section 4.2.4, RFC 5861 section 4).
bool mayServeStaleOnError(const URLRequest& request, const CachedURLResponse& stored, Date now,
                          std::optional<int> status);

// The URLs whose stored answers an answer to an unsafe request makes invalid (section 4.4): the
// request's own, and Location and Content-Location of the same origin. Empty for safe methods and
// for error answers.
std::vector<URL> invalidatedURLs(const URLRequest& request, const HTTPURLResponse& response);

// What the answer to a HEAD request means for the stored answer to GET (section 4.3.5).
enum class HeadEffect {
  none,
  update,      // keep entryAfterValidation() in its place
  invalidate,  // remove it
};
HeadEffect effectOfHead(const CachedURLResponse& stored, const HTTPURLResponse& headAnswer);

}  // namespace paperloom::internal
