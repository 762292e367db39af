#pragma once

#include <chrono>
#include <optional>
#include <string>

#include "paperloom/platform/Date.h"
#include "paperloom/platform/Export.h"
#include "paperloom/platform/URLRequest.h"
#include "paperloom/platform/URLResponse.h"

namespace paperloom {

// What a session would do with a request, and why: the same rules the session itself obeys
// (RFC 9111 as a private cache), asked without sending anything.
struct CacheExplanation {
  enum class Outcome {
    answeredFromCache,  // no traffic
    revalidated,        // sent with conditions; the stored copy serves if the server confirms it
    sent,               // sent as it stands
    refused,            // the request allows the cache alone and nothing fits
  };

  Outcome outcome = Outcome::sent;
  bool stale = false;  // answeredFromCache with a copy past its freshness
  std::string reason;  // one clause in the words of the rules
  std::string where;   // the text that says so, as "RFC 9111 section 4.2"; empty for a policy
  // Of the stored copy, when there is one: how old it is, and for how long it is fresh in all.
  std::optional<std::chrono::seconds> age;
  std::optional<std::chrono::seconds> freshnessLifetime;
};

// `stored` is what URLCache::cachedResponse gives for the request. Pure; safe on any thread.
PAPERLOOM_EXPORT CacheExplanation explainCaching(const URLRequest& request,
                                                 const std::optional<CachedURLResponse>& stored,
                                                 Date now);

}  // namespace paperloom
