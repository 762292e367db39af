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

// What the rules look at, gathered once.
struct Situation {
  const URLRequest& request;
  const CachedURLResponse& stored;
  CacheControl asked;     // the request's directives
  CacheControl directed;  // the stored answer's
  CurrentAge age;
  FreshnessLifetime lifetime;

  Situation(const URLRequest& r, const CachedURLResponse& s, Date now)
      : request(r),
        stored(s),
        asked(r.headers),
        directed(s.response.headers),
        age(currentAge(s, now)),
        lifetime(freshnessLifetime(s.response, s.responseTime)) {
    // A guess is no ground to tell what an account may do.
    if (isForAnAccount() && !lifetime.isExplicit) {
      lifetime = {.source = "nothing says how long the answer to an account holds"};
    }
  }

  bool isFresh() const { return age.isReliable && age.value < lifetime.value; }
  bool isForAnAccount() const { return request.headers.contains("Authorization"); }
  seconds staleness() const { return age.value - lifetime.value; }
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

bool variesOnEverything(const HTTPHeaders& headers) {
  const auto vary = headers.combined("Vary");
  if (!vary) return false;
  const auto members = listMembers(*vary);
  return std::find(members.begin(), members.end(), "*") != members.end();
}

// Section 4.2.4: what no permission to serve stale can override. proxy-revalidate and s-maxage are
// for shared caches (sections 5.2.2.8 and 5.2.2.10). What an account was told once does not hold
// when the server fails or when it would say something else today.
bool forbidsServingStale(const Situation& s) {
  return s.directed.has("must-revalidate") || s.directed.hasUnqualified("no-cache") ||
         variesOnEverything(s.stored.response.headers) || !s.age.isReliable || s.isForAnAccount();
}

// Why the stored answer must be validated however fresh it is (sections 4, 4.1, 5.2.2.4); empty
// when nothing demands it.
std::string demandForValidation(const Situation& s) {
  if (s.request.cachePolicy == URLRequestCachePolicy::reloadRevalidatingCacheData) {
    return "the request's policy demands validation";
  }
  if (asksForNoCache(s.request, s.asked)) return "the request says no-cache";
  if (s.directed.hasUnqualified("no-cache")) return "the stored answer says no-cache";
  if (variesOnEverything(s.stored.response.headers)) return "the stored answer varies on *";
  return {};
}

// Why a fresh answer is still not what the request wants (sections 5.2.1.1 and 5.2.1.3); empty when
// it is. A malformed number asks for the most.
std::string demandForFresher(const Situation& s) {
  // RFC 8246 section 2: a reload, which is what max-age=0 says, leaves immutable answers alone.
  const bool isImmutable = s.isFresh() && s.directed.has("immutable");
  const auto maxAge = s.asked.seconds("max-age");
  if (maxAge.given && !isImmutable && s.age.value >= maxAge.value.value_or(seconds(0))) {
    return "the request wants nothing older than its max-age and the stored answer is " +
           inSeconds(s.age.value) + " old";
  }
  const auto minFresh = s.asked.seconds("min-fresh");
  if (minFresh.invalid() || (minFresh.value && s.lifetime.value - s.age.value < *minFresh.value)) {
    return "the stored answer does not stay fresh as long as the request's min-fresh";
  }
  return {};
}

// Section 5.2.1.2.
bool allowsByMaxStale(const Situation& s) {
  const auto maxStale = s.asked.seconds("max-stale");
  return maxStale.withoutArgument || (maxStale.value && s.staleness() <= *maxStale.value);
}

// RFC 5861 section 3. A request that limits the age has said that it wants nothing stale (section
// 5.2.1.1).
bool allowsWhileRevalidating(const Situation& s) {
  const auto window = s.directed.seconds("stale-while-revalidate");
  return window.value && s.staleness() < *window.value && !s.asked.has("max-age");
}

std::string describeStaleness(const Situation& s) {
  if (!s.age.isReliable) return "the age of the stored answer cannot be known";
  if (s.lifetime.value == seconds(0)) {
    return "the stored answer is stale: " + std::string(s.lifetime.source);
  }
  return "the stored answer is stale: " + inSeconds(s.age.value) + " old, fresh for " +
         inSeconds(s.lifetime.value) + " by " + std::string(s.lifetime.source);
}

// Section 4.3.1: both validators when there are two. Last-Modified goes out only when it is a date.
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

// Why a request can be answered by the server alone; empty when a stored answer may do.
std::string reasonToBypass(const URLRequest& request, const CachedURLResponse* stored) {
  if (request.method != "GET" && request.method != "HEAD") {
    return "answers to " + request.method + " do not come from the cache";
  }
  if (request.cachePolicy == URLRequestCachePolicy::reloadIgnoringLocalCacheData) {
    return "the request's policy ignores the cache";
  }
  if (CacheControl(request.headers).has("no-store")) return "the request says no-store";
  // RFC 9111 section 4.3.2: these are for the origin server.
  for (const char* condition : {"If-Match", "If-Unmodified-Since"}) {
    if (request.headers.contains(condition)) {
      return std::string("only the server can judge ") + condition;
    }
  }
  // A host may have put a part of an answer into the cache; it stands for no whole one.
  if (stored == nullptr || stored->response.statusCode == 206) {
    return "nothing stored fits the request";
  }
  const auto range = request.headers.combined("Range");
  const auto coding = stored->response.headers.combined("Content-Encoding");
  if (range && request.method == "GET" && (!ByteRange::parse(*range) || coding)) {
    return "the range cannot be cut from the stored answer";
  }
  return {};
}

CachePlan sendOrRefuse(const URLRequest& request, std::string reason) {
  CachePlan plan;
  plan.reason = std::move(reason);
  if (CacheControl(request.headers).has("only-if-cached") &&
      (request.method == "GET" || request.method == "HEAD")) {
    plan.action = Action::gatewayTimeout;
    plan.reason += ", and the request says only-if-cached";
  }
  return plan;
}

// The stored answer will not do as it is: ask the server about it, if there is a way to ask. HEAD
// goes out as it stands, since its answer describes the stored one anyway (section 4.3.5), and a
// caller with conditions of its own wants the answer to those.
CachePlan validateOrSend(const Situation& s, std::string reason) {
  CachePlan plan = sendOrRefuse(s.request, std::move(reason));
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

CachePlan serve(bool stale, std::string reason) {
  CachePlan plan;
  plan.action = Action::serveStored;
  plan.stale = stale;
  plan.reason = std::move(reason);
  return plan;
}

CachePlan planWithStored(const Situation& s) {
  std::string demand = demandForValidation(s);
  if (demand.empty()) demand = demandForFresher(s);
  if (!demand.empty()) return validateOrSend(s, std::move(demand));
  if (s.isFresh()) {
    return serve(false, "the stored answer is fresh: " + inSeconds(s.age.value) + " of " +
                            inSeconds(s.lifetime.value) + " by " + std::string(s.lifetime.source));
  }
  if (!forbidsServingStale(s)) {
    if (allowsByMaxStale(s)) return serve(true, describeStaleness(s) + ", as max-stale allows");
    if (allowsWhileRevalidating(s)) {
      CachePlan plan = serve(true, describeStaleness(s) + ", as stale-while-revalidate allows");
      plan.revalidateInBackground = true;
      plan.conditions = conditionsFrom(s.stored);
      return plan;
    }
  }
  return validateOrSend(s, describeStaleness(s));
}

// The policies that take a stored answer of any age.
bool takesAnyAge(URLRequestCachePolicy policy) {
  return policy == URLRequestCachePolicy::returnCacheDataElseLoad ||
         policy == URLRequestCachePolicy::returnCacheDataDontLoad;
}

}  // namespace

CachePlan planRequest(const URLRequest& request, const CachedURLResponse* stored, Date now) {
  CachePlan plan;
  const std::string bypass = reasonToBypass(request, stored);
  if (stored == nullptr || !bypass.empty()) {
    plan = sendOrRefuse(request, bypass);
    if (request.cachePolicy == URLRequestCachePolicy::returnCacheDataDontLoad) {
      plan.action = Action::unavailable;
      plan.reason = bypass + ", and the request's policy forbids to load";
    }
    if (stored == nullptr) return plan;
  }
  const Situation situation(request, *stored, now);
  if (bypass.empty() && takesAnyAge(request.cachePolicy)) {
    plan = serve(!situation.isFresh(), "the request's policy takes a stored answer of any age");
  } else if (bypass.empty()) {
    plan = planWithStored(situation);
  }
  plan.age = situation.age.value;
  plan.lifetime = situation.lifetime.value;
  return plan;
}

bool mayServeStaleOnError(const URLRequest& request, const CachedURLResponse& stored, Date now,
                          std::optional<int> status) {
  // RFC 5861 section 4.
  if (status && *status != 500 && *status != 502 && *status != 503 && *status != 504) return false;
  if (!reasonToBypass(request, &stored).empty()) return false;
  const Situation situation(request, stored, now);
  if (!demandForValidation(situation).empty() || !demandForFresher(situation).empty()) return false;
  if (forbidsServingStale(situation)) return false;
  if (situation.isFresh()) return true;
  for (const CacheControl* control : {&situation.directed, &situation.asked}) {
    const auto window = control->seconds("stale-if-error");
    if (window.value && situation.staleness() <= *window.value) return true;
  }
  return allowsByMaxStale(situation);
}

}  // namespace paperloom::internal
