#pragma once

#include <chrono>
#include <string_view>

#include "paperloom/platform/Date.h"
#include "paperloom/platform/URLResponse.h"

namespace paperloom::internal {

// For how long an answer is fresh, and what says so (RFC 9111 section 4.2.1).
struct FreshnessLifetime {
  std::chrono::seconds value{0};
  std::string_view source;  // "max-age", "Expires", ..., for people to read
  bool isExplicit = false;
};
FreshnessLifetime freshnessLifetime(const HTTPURLResponse& response, Date responseTime);

// How old an answer is (section 4.2.3). Not reliable when our clock has been set back since the
// answer came: then it may be of any age, and never counts as fresh.
struct CurrentAge {
  std::chrono::seconds value{0};
  bool isReliable = true;
};
CurrentAge currentAge(const CachedURLResponse& stored, Date now);

// Whether the status may be cached without explicit freshness (RFC 9110 section 15.1). 206 is left
// out: ranges are not stored.
bool isHeuristicallyCacheable(int status);

}  // namespace paperloom::internal
