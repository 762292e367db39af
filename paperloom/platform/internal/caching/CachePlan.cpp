#include "paperloom/platform/internal/caching/CachePlan.h"

#include <algorithm>
#include <utility>

#include "paperloom/platform/internal/caching/Freshness.h"
#include "paperloom/platform/internal/http/ByteRange.h"
#include "paperloom/platform/internal/http/CacheControl.h"
#include "paperloom/platform/internal/http/HTTPDate.h"
#include "paperloom/platform/internal/http/HTTPFieldSyntax.h"

namespace paperloom::internal {
namespace {

using Action = CachePlan::Action;
using std::chrono::seconds;

// Why a plan is what it is; no words, no reason.
struct Ground {
  std::string words{};
  std::string_view where{};

  explicit operator bool() const { return !words.empty(); }
};

// What the rules look at, gathered once.
struct Situation {
  const URLRequest& request;
  const CachedURLResponse& stored;
  CacheControl asked;     // the request's directives
  CacheControl directed;  // the stored answer's
  CurrentAge age;
  seconds sinceReceived;
  FreshnessLifetime lifetime;

  Situation(const URLRequest& r, const CachedURLResponse& s, Date now)
      : request(r),
        stored(s),
        asked(r.headers),
        directed(s.response.headers),
        age(currentAge(s, now)),
        sinceReceived(std::max(seconds(0), std::chrono::floor<seconds>(now - s.responseTime))),
        lifetime(freshnessLifetime(s.response, s.responseTime)) {
    // A guess is no ground to tell what an account may do.
    if (isForAnAccount() && !lifetime.isExplicit) {
      lifetime = {.source = "nothing says how long the answer to an account holds"};
    }
  }

  bool isFresh() const { return age.isReliable && age.value < lifetime.value; }
  bool isForAnAccount() const { return request.headers.contains("Authorization"); }
  // Young enough for a request that says how old a copy may be.
  bool isYoung() const {
    if (!request.refreshIfOlderThan || !age.isReliable || isForAnAccount()) return false;
    return stored.response.statusCode < 400 && sinceReceived <= *request.refreshIfOlderThan;
  }
  seconds pastFreshness() const { return age.value - lifetime.value; }
};

std::string inSeconds(seconds value) { return std::to_string(value.count()) + " s"; }

// Section 5.4: Pragma counts only where there is no Cache-Control.
bool asksForNoCache(const URLRequest& request, const CacheControl& asked) {
  if (asked.has("no-cache")) return true;
  if (!asked.empty()) return false;
  const auto pragma = request.headers.combined("Pragma");
  if (!pragma) return false;
  const auto members = listMembers(*pragma);
  return std::any_of(members.begin(), members.end(), [](std::string_view member) {
    return equalsIgnoringCase(member, "no-cache");
  });
}

// Section 4.2.4: "A cache MUST NOT generate a stale response if it is prohibited by an explicit
// in-protocol directive", which no permission overrides. proxy-revalidate and s-maxage are for
// shared caches (sections 5.2.2.8 and 5.2.2.10). What an account was told once does not hold when
// the server fails or when it would say something else today. What demandForValidation() looks at
// has been looked at before.
bool forbidsServingStale(const Situation& s) {
  return s.directed.has("must-revalidate") || !s.age.isReliable || s.isForAnAccount();
}

// Why the stored answer must be validated however fresh it is, in the order of section 4: the
// fields that Vary names, the no-cache of either side.
Ground demandForValidation(const Situation& s) {
  if (s.request.cachePolicy == URLRequestCachePolicy::reloadRevalidatingCacheData) {
    return {"the request's policy demands validation"};
  }
  // "a stored response with a Vary header field value containing a member "*" always fails to
  // match"
  if (variesOnEverything(s.stored.response.headers)) {
    return {"the stored answer varies on *", "RFC 9111 section 4.1"};
  }
  if (asksForNoCache(s.request, s.asked)) {
    return {"the request says no-cache",
            s.asked.has("no-cache") ? "RFC 9111 section 5.2.1.4" : "RFC 9111 section 5.4"};
  }
  if (s.directed.hasUnqualified("no-cache") && !s.isYoung()) {
    return {"the stored answer says no-cache", "RFC 9111 section 5.2.2.4"};
  }
  return {};
}

// Why a fresh answer is still not what the request wants. A malformed number asks for the most.
Ground demandForFresher(const Situation& s) {
  // RFC 8246 section 2: a reload, which is what max-age=0 says, leaves immutable answers alone.
  const bool isImmutable = s.isFresh() && s.directed.has("immutable");
  // Section 5.2.1.1: "the client prefers a response whose age is less than or equal to the
  // specified number of seconds"; a copy that is just as old may be older when it arrives.
  const auto maxAge = s.asked.seconds("max-age");
  if (maxAge.given && !isImmutable && s.age.value >= maxAge.value.value_or(seconds(0))) {
    return {"the request wants nothing older than its max-age and the stored answer is " +
                inSeconds(s.age.value) + " old",
            "RFC 9111 section 5.2.1.1"};
  }
  // Section 5.2.1.3: "a response whose freshness lifetime is no less than its current age plus the
  // specified time".
  const auto minFresh = s.asked.seconds("min-fresh");
  if (minFresh.invalid() || (minFresh.value && s.lifetime.value - s.age.value < *minFresh.value)) {
    return {"the stored answer does not stay fresh as long as the request's min-fresh",
            "RFC 9111 section 5.2.1.3"};
  }
  return {};
}

// Section 5.2.1.2.
bool allowsByMaxStale(const Situation& s) {
  const auto maxStale = s.asked.seconds("max-stale");
  return maxStale.withoutArgument || (maxStale.value && s.pastFreshness() <= *maxStale.value);
}

// RFC 5861 section 3. A request that limits the age has said that it wants nothing stale (section
// 5.2.1.1).
bool allowsWhileRevalidating(const Situation& s) {
  const auto window = s.directed.seconds("stale-while-revalidate");
  return window.value && s.pastFreshness() < *window.value && !s.asked.has("max-age");
}

Ground staleness(const Situation& s) {
  if (!s.age.isReliable) {
    return {"the age of the stored answer cannot be known", "RFC 9111 section 4.2.3"};
  }
  const std::string_view where =
      s.lifetime.isExplicit ? "RFC 9111 section 4.2.1" : "RFC 9111 section 4.2.2";
  if (s.lifetime.value == seconds(0)) {
    return {"the stored answer is stale: " + std::string(s.lifetime.source), where};
  }
  return {"the stored answer is stale: " + inSeconds(s.age.value) + " old, fresh for " +
              inSeconds(s.lifetime.value) + " by " + std::string(s.lifetime.source),
          where};
}

// Section 4.3.1: a cache "MUST send the relevant entity tags" that the stored answer came with, and
// "SHOULD send the Last-Modified value"; the latter here only when it is a date.
HTTPHeaders conditionsFrom(const CachedURLResponse& stored) {
  HTTPHeaders conditions;
  const auto tag = stored.response.headers.first("ETag");
  if (tag && !trimmed(*tag).empty()) conditions.add("If-None-Match", std::string(trimmed(*tag)));
  const auto modified = stored.response.headers.first("Last-Modified");
  if (modified && parseHTTPDate(trimmed(*modified), stored.responseTime)) {
    conditions.add("If-Modified-Since", std::string(trimmed(*modified)));
  }
  return conditions;
}

bool hasOwnConditions(const URLRequest& request) {
  return request.headers.contains("If-None-Match") || request.headers.contains("If-Modified-Since");
}

// Why a request can be answered by the server alone; no ground when a stored answer may do.
Ground reasonToBypass(const URLRequest& request, const CachedURLResponse* stored) {
  // Section 4: "the request method associated with the stored response allows it to be used for the
  // presented request". What is stored are answers to GET, which do for HEAD.
  if (request.method != "GET" && request.method != "HEAD") {
    return {"answers to " + request.method + " do not come from the cache", "RFC 9111 section 4"};
  }
  if (request.cachePolicy == URLRequestCachePolicy::reloadIgnoringLocalCacheData) {
    return {"the request's policy ignores the cache"};
  }
  if (CacheControl(request.headers).has("no-store")) {
    return {"the request says no-store", "RFC 9111 section 5.2.1.5"};
  }
  // Section 4.3.2: a cache "MUST NOT evaluate conditional header fields that only apply to an
  // origin server".
  for (const char* condition : {"If-Match", "If-Unmodified-Since"}) {
    if (request.headers.contains(condition)) {
      return {std::string("only the server can judge ") + condition, "RFC 9111 section 4.3.2"};
    }
  }
  // A host may have put a part of an answer into the cache; it stands for no whole one
  // (section 3.3).
  if (stored == nullptr || stored->response.statusCode == 206) {
    return {"nothing stored fits the request", "RFC 9111 section 4"};
  }
  const auto range = request.headers.combined("Range");
  const auto coding = stored->response.headers.combined("Content-Encoding");
  if (range && request.method == "GET" && (!ByteRange::parse(*range) || coding)) {
    return {"the range cannot be cut from the stored answer", "RFC 9110 section 14.2"};
  }
  return {};
}

CachePlan sendOrRefuse(const URLRequest& request, Ground ground) {
  CachePlan plan;
  plan.reason = std::move(ground.words);
  plan.where = ground.where;
  if (CacheControl(request.headers).has("only-if-cached") &&
      (request.method == "GET" || request.method == "HEAD")) {
    plan.action = Action::gatewayTimeout;
    plan.reason += ", and the request says only-if-cached";
    plan.where = "RFC 9111 section 5.2.1.7";
  }
  return plan;
}

// The stored answer will not do as it is: ask the server about it, if there is a way to ask. HEAD
// goes out as it stands, since its answer describes the stored one anyway (section 4.3.5), and a
// caller with conditions of its own wants the answer to those.
CachePlan validateOrSend(const Situation& s, Ground ground) {
  CachePlan plan = sendOrRefuse(s.request, std::move(ground));
  if (plan.action != Action::send) return plan;
  if (s.request.cachePolicy == URLRequestCachePolicy::reloadRevalidatingCacheData &&
      s.asked.empty()) {
    plan.conditions.add("Cache-Control", "max-age=0");
  }
  if (s.request.method == "HEAD") {
    plan.reason += "; a HEAD request asks the server as it stands";
    return plan;
  }
  if (hasOwnConditions(s.request)) {
    plan.reason += "; the request brings conditions of its own";
    return plan;
  }
  const HTTPHeaders validators = conditionsFrom(s.stored);
  if (validators.empty()) {
    plan.reason += "; it has no validator";
    return plan;
  }
  plan.action = Action::revalidate;
  for (const auto& [name, value] : validators) plan.conditions.add(name, value);
  return plan;
}

CachePlan serve(bool stale, std::string reason, std::string_view where = {}) {
  CachePlan plan;
  plan.action = Action::serveStored;
  plan.stale = stale;
  plan.reason = std::move(reason);
  plan.where = where;
  return plan;
}

// Why a copy will not do for a request that says how old one may be.
Ground demandForYounger(const Situation& s) {
  if (!s.request.refreshIfOlderThan) return {};
  if (s.stored.response.statusCode >= 400) {
    return {"the stored answer is an error, and the request takes young documents alone"};
  }
  if (s.sinceReceived <= *s.request.refreshIfOlderThan) return {};
  return {"the stored answer was received " + inSeconds(s.sinceReceived) +
          " ago, and the request takes " + inSeconds(*s.request.refreshIfOlderThan)};
}

// Section 4: "a cache MUST NOT reuse a stored response unless [...] the stored response is one of
// the following: fresh [...], or allowed to be served stale [...], or successfully validated".
CachePlan planWithStored(const Situation& s) {
  Ground demand = demandForValidation(s);
  if (!demand) demand = demandForYounger(s);
  if (!demand) demand = demandForFresher(s);
  if (demand) return validateOrSend(s, std::move(demand));
  if (s.isFresh()) {
    return serve(false,
                 "the stored answer is fresh: " + inSeconds(s.age.value) + " of " +
                     inSeconds(s.lifetime.value) + " by " + std::string(s.lifetime.source),
                 "RFC 9111 section 4.2");
  }
  if (s.isYoung()) {
    return serve(true, staleness(s).words + ", but received " + inSeconds(s.sinceReceived) +
                           " ago, and the request takes " +
                           inSeconds(*s.request.refreshIfOlderThan));
  }
  if (!forbidsServingStale(s)) {
    if (allowsByMaxStale(s)) {
      return serve(true, staleness(s).words + ", as max-stale allows", "RFC 9111 section 5.2.1.2");
    }
    if (allowsWhileRevalidating(s)) {
      CachePlan plan = serve(true, staleness(s).words + ", as stale-while-revalidate allows",
                             "RFC 5861 section 3");
      plan.revalidateInBackground = true;
      plan.conditions = conditionsFrom(s.stored);
      return plan;
    }
  }
  return validateOrSend(s, staleness(s));
}

// The policies that take a stored answer of any age.
bool takesAnyAge(URLRequestCachePolicy policy) {
  return policy == URLRequestCachePolicy::returnCacheDataElseLoad ||
         policy == URLRequestCachePolicy::returnCacheDataDontLoad;
}

}  // namespace

bool variesOnEverything(const HTTPHeaders& response) {
  const auto vary = response.combined("Vary");
  if (!vary) return false;
  const auto members = listMembers(*vary);
  return std::find(members.begin(), members.end(), "*") != members.end();
}

CachePlan planRequest(const URLRequest& request, const CachedURLResponse* stored, Date now) {
  CachePlan plan;
  const Ground bypass = reasonToBypass(request, stored);
  if (stored == nullptr || bypass) {
    plan = sendOrRefuse(request, bypass);
    if (request.cachePolicy == URLRequestCachePolicy::returnCacheDataDontLoad) {
      plan.action = Action::unavailable;
      plan.reason = bypass.words + ", and the request's policy forbids to load";
    }
    if (stored == nullptr) return plan;
  }
  const Situation situation(request, *stored, now);
  if (!bypass && takesAnyAge(request.cachePolicy)) {
    plan = serve(!situation.isFresh(), "the request's policy takes a stored answer of any age");
  } else if (!bypass) {
    plan = planWithStored(situation);
  }
  plan.age = situation.age.value;
  plan.lifetime = situation.lifetime.value;
  return plan;
}

bool mayServeStaleOnError(const URLRequest& request, const CachedURLResponse& stored, Date now,
                          std::optional<int> status) {
  // RFC 5861 section 4: "An error is any situation that would result in a 500, 502, 503, or 504
  // HTTP response status code being returned."
  if (status && *status != 500 && *status != 502 && *status != 503 && *status != 504) return false;
  if (reasonToBypass(request, &stored)) return false;
  const Situation situation(request, stored, now);
  if (demandForValidation(situation) || demandForFresher(situation)) return false;
  if (forbidsServingStale(situation)) return false;
  if (situation.isFresh()) return true;
  for (const CacheControl* control : {&situation.directed, &situation.asked}) {
    const auto window = control->seconds("stale-if-error");
    if (window.value && situation.pastFreshness() <= *window.value) return true;
  }
  return allowsByMaxStale(situation);
}

}  // namespace paperloom::internal
