#pragma once

#include <chrono>
#include <string>
#include <string_view>

#include "paperloom/network/Provenance.h"
#include "paperloom/platform/Date.h"
#include "paperloom/platform/Export.h"

// A document's origin in words, English and without a capital or a full stop. Pure, for any thread.
namespace paperloom {

// For people: "from the network", "from the cache, fetched 3 minutes ago", "from the cache, as the
// server gives no answer, fetched 2 days ago", "from the copy that comes with the library".
PAPERLOOM_EXPORT std::string describe(const Provenance& provenance, Date now = currentDate());

// For programs: "network", "cache", "revalidated", "stale" or "library"; "cache" for every copy
// that took the place of an answer.
PAPERLOOM_EXPORT std::string_view sourceName(const Provenance& provenance);

// "4 seconds", "1 minute", "2 hours", "9 days": the largest unit that fits, rounded down.
PAPERLOOM_EXPORT std::string describeDuration(std::chrono::seconds duration);
// The same followed by "ago"; "just now" for less than two seconds.
PAPERLOOM_EXPORT std::string describeAge(std::chrono::seconds age);

}  // namespace paperloom
