#pragma once

#include <vector>

#include "paperloom/platform/Data.h"
#include "paperloom/platform/Date.h"
#include "paperloom/platform/URL.h"
#include "paperloom/platform/URLRequest.h"
#include "paperloom/platform/URLResponse.h"
#include "paperloom/platform/internal/caching/CachePlan.h"

// What may be kept, and what a validation or an unsafe request changes (RFC 9111 sections 3
// and 4.4). Pure functions for a private cache: nothing here reads a clock, a cache or the network;
// every function is safe on any thread and takes whatever a server may send.
namespace paperloom::internal {

// Whether the answer may be kept (section 3). `complete` says that the whole body arrived. A POST
// answer that may be kept is kept, after the invalidation, as the answer to a GET of the same URL
// (RFC 9110 section 9.3.3).
bool mayStore(const URLRequest& request, const HTTPURLResponse& response, bool complete);

// Why it may not, in a clause; null when it may.
const char* reasonNotToStore(const URLRequest& request, const HTTPURLResponse& response,
                             bool complete);

// The entry to keep for an answer that may be kept, without the fields that belong to the
// connection or to a proxy (section 3.1).
CachedURLResponse entryToStore(const HTTPURLResponse& response, Data data, Date requestTime,
                               Date responseTime);

// Whether a 304 confirms `stored` (section 4.3.4): not when it names another answer by its ETag.
// One that names none confirms it when the plan's own conditions were sent, and otherwise when it
// carries the Last-Modified of `stored`: the caller's own conditions may be about anything. A 304
// to those is the caller's answer either way; one to the plan's that does not confirm is none, and
// the request is to be sent without them.
bool confirmsStored(const CachePlan& plan, const CachedURLResponse& stored,
                    const HTTPURLResponse& notModified);

// The stored answer brought up to date by a 304, or by a HEAD answer that describes it (sections
// 3.2, 4.3.4, 4.3.5): its fields replaced by those received, but for the ones that describe the
// stored bytes; its body kept; its times those of the validation. Ask mayStore() about the result
// before keeping it: the confirmation may have brought no-store.
CachedURLResponse entryAfterValidation(const CachedURLResponse& stored,
                                       const HTTPURLResponse& confirmation, Date requestTime,
                                       Date responseTime);

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
