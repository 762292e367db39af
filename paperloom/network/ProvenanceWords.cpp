#include "paperloom/network/ProvenanceWords.h"

#include <algorithm>

namespace paperloom {

using Source = Provenance::Source;

std::string_view sourceName(const Provenance& provenance) {
  if (provenance.fromCache) return "cache";
  switch (provenance.source) {
    case Source::network:
      return "network";
    case Source::cache:
      return "cache";
    case Source::revalidated:
      return "revalidated";
    case Source::stale:
      return "stale";
    case Source::library:
      return "library";
  }
  return "";
}

std::string describe(const Provenance& provenance, Date now) {
  std::string fetched;
  if (provenance.fetchedAt) {
    const auto since = std::chrono::floor<std::chrono::seconds>(now - *provenance.fetchedAt);
    fetched = ", fetched " + describeAge(since);
  }
  if (provenance.fromCache) return "from the cache, as the server gives no answer" + fetched;
  switch (provenance.source) {
    case Source::network:
      return "from the network";
    case Source::cache:
      return "from the cache" + fetched;
    case Source::revalidated:
      return "from the cache, confirmed by the server";
    case Source::stale:
      return "from the cache, out of date" + fetched;
    case Source::library:
      return "from the copy that comes with the library";
  }
  return {};
}

std::string describeDuration(std::chrono::seconds duration) {
  struct Unit {
    std::int64_t seconds;
    const char* name;
  };
  static constexpr Unit units[] = {
      {86'400, " day"}, {3'600, " hour"}, {60, " minute"}, {1, " second"}};
  const std::int64_t whole = std::max<std::int64_t>(duration.count(), 0);
  const Unit* unit = std::begin(units);
  while (unit->seconds > 1 && whole < unit->seconds) ++unit;
  const std::int64_t number = whole / unit->seconds;
  return std::to_string(number) + unit->name + (number == 1 ? "" : "s");
}

std::string describeAge(std::chrono::seconds age) {
  if (age < std::chrono::seconds(2)) return "just now";
  return describeDuration(age) + " ago";
}

}  // namespace paperloom
