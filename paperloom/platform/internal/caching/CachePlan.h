#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

#include "paperloom/platform/Date.h"
#include "paperloom/platform/HTTPHeaders.h"
#include "paperloom/platform/URLRequest.h"
#include "paperloom/platform/URLResponse.h"

// What a request may be answered with (RFC 9111 section 4). Which variant of a URL fits a request
// (section 4.1) is decided before, by the cache that hands over `stored`.
// Pure functions for a private cache: nothing here reads a clock, a cache or the network; every
// function is safe on any thread and takes whatever a server may send.
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
  std::string reason;      // why, in the words of the rules, as one clause of a sentence
  std::string_view where;  // the text that says so, as "RFC 9111 section 4.2"; empty for a policy
};

// Sections 4, 4.2, 4.3.1, 5.2.1, 5.4 and the request's cache policy. `stored` is the stored answer
// that fits the request, or null. For a request with Authorization no freshness is guessed and
// nothing stale served.
CachePlan planRequest(const URLRequest& request, const CachedURLResponse* stored, Date now);

// Whether Vary has a member *: the answer is the one to its request alone (section 4.1).
bool variesOnEverything(const HTTPHeaders& response);

// Whether a stored answer may be handed out because the server failed: with a status, or, without
// one, on the way (section 4.2.4, RFC 5861 section 4).
bool mayServeStaleOnError(const URLRequest& request, const CachedURLResponse& stored, Date now,
                          std::optional<int> status);

}  // namespace paperloom::internal
