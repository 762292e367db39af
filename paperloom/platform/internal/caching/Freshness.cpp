#include "paperloom/platform/internal/caching/Freshness.h"

#include <algorithm>
#include <array>
#include <string>

#include "paperloom/platform/internal/http/CacheControl.h"
#include "paperloom/platform/internal/http/HTTPDate.h"
#include "paperloom/platform/internal/http/HTTPFieldSyntax.h"

namespace paperloom::internal {
namespace {

using std::chrono::seconds;

// A tenth of the time since the last change is the customary guess; news grows old in a day.
constexpr int heuristicFraction = 10;
constexpr seconds heuristicLimit = std::chrono::hours(24);

// How far our clock may step back, as clock synchronisation does, before ages become meaningless.
constexpr seconds clockTolerance = std::chrono::minutes(1);

// RFC 9110 section 6.6.1: without a usable Date, the time of arrival stands in for it.
Date dateValue(const HTTPURLResponse& response, Date responseTime) {
  const auto field = response.headers.first("Date");
  if (!field) return responseTime;
  return parseHTTPDate(trimmed(*field), responseTime).value_or(responseTime);
}

// Section 5.3: a value that is no date, "0" above all, is in the past. So are two that differ.
FreshnessLifetime lifetimeFromExpires(const HTTPURLResponse& response, Date responseTime) {
  FreshnessLifetime lifetime{.source = "Expires", .isExplicit = true};
  const auto values = response.headers.all("Expires");
  if (std::any_of(values.begin(), values.end(),
                  [&](std::string_view value) { return value != values.front(); })) {
    lifetime.source = "contradicting Expires fields";
    return lifetime;
  }
  const auto expires = parseHTTPDate(trimmed(values.front()), responseTime);
  if (!expires) {
    lifetime.source = "an Expires that is no date";
    return lifetime;
  }
  lifetime.value =
      std::max(seconds(0), secondsBetween(dateValue(response, responseTime), *expires));
  return lifetime;
}

// Section 4.2.2, for want of "an explicit expiration time", and only for "a status code that is
// defined as heuristically cacheable" or one with public.
FreshnessLifetime heuristicLifetime(const HTTPURLResponse& response, const CacheControl& control,
                                    Date responseTime) {
  FreshnessLifetime lifetime{.source = "no freshness information"};
  if (!isHeuristicallyCacheable(response.statusCode) && !control.has("public")) return lifetime;
  const auto field = response.headers.first("Last-Modified");
  if (!field) return lifetime;
  const auto modified = parseHTTPDate(trimmed(*field), responseTime);
  if (!modified) return lifetime;
  const seconds unchanged = secondsBetween(*modified, dateValue(response, responseTime));
  lifetime.value = std::clamp(unchanged / heuristicFraction, seconds(0), heuristicLimit);
  lifetime.source = "a tenth of the time since Last-Modified";
  return lifetime;
}

// Section 5.1: "a cache encountering a message with a list-based Age field value SHOULD use the
// first member of the field value, discarding subsequent ones. If the field value [...] is invalid
// [...], a cache SHOULD ignore the field."
seconds ageValue(const HTTPHeaders& headers) {
  const std::string_view field = headers.first("Age").value_or("");
  return deltaSeconds(trimmed(field.substr(0, field.find(',')))).value_or(seconds(0));
}

}  // namespace

FreshnessLifetime freshnessLifetime(const HTTPURLResponse& response, Date responseTime) {
  // Section 4.2.1, in its order; s-maxage is for shared caches. "Caches are encouraged to consider
  // responses that have invalid freshness information [...] to be stale."
  const CacheControl control(response.headers);
  const CacheControl::Seconds maxAge = control.seconds("max-age");
  if (maxAge.invalid()) return {.source = "a malformed max-age", .isExplicit = true};
  if (maxAge.value) return {.value = *maxAge.value, .source = "max-age", .isExplicit = true};
  if (response.headers.contains("Expires")) return lifetimeFromExpires(response, responseTime);
  return heuristicLifetime(response, control, responseTime);
}

// Section 4.2.3: current_age = max(apparent_age, age_value + response_delay) + resident_time.
CurrentAge currentAge(const CachedURLResponse& stored, Date now) {
  const seconds apparentAge = std::max(
      seconds(0),
      secondsBetween(dateValue(stored.response, stored.responseTime), stored.responseTime));
  const seconds responseDelay =
      std::max(seconds(0), secondsBetween(stored.requestTime, stored.responseTime));
  const seconds correctedAge = ageValue(stored.response.headers) + responseDelay;
  const seconds residentTime = secondsBetween(stored.responseTime, now);
  return {.value = std::max(apparentAge, correctedAge) + std::max(seconds(0), residentTime),
          .isReliable = residentTime >= -clockTolerance};
}

bool isHeuristicallyCacheable(int status) {
  constexpr std::array statuses{200, 203, 204, 300, 301, 308, 404, 405, 410, 414, 501};
  return std::find(statuses.begin(), statuses.end(), status) != statuses.end();
}

}  // namespace paperloom::internal
