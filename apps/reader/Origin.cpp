#include "apps/reader/Origin.h"

#include <algorithm>

#include "apps/reader/Text.h"

namespace paperloom::reader {

using Source = URLSessionTaskMetrics::Source;

std::string Origin::word() const {
  if (shipped) return "library";
  if (fallback) return "cache";
  switch (source) {
    case Source::network:
      return "network";
    case Source::cache:
      return "cache";
    case Source::revalidated:
      return "revalidated";
    case Source::stale:
      return "stale";
  }
  return {};
}

std::string Origin::sentence() const {
  if (shipped) return "from the copy that comes with the library";
  std::string fetched;
  if (fetchedAt) {
    const auto since = std::chrono::floor<std::chrono::seconds>(currentDate() - *fetchedAt);
    fetched = ", fetched " + ago(std::max(since, std::chrono::seconds(0)));
  }
  if (fallback) return "from the cache, as the server gives no answer" + fetched;
  switch (source) {
    case Source::network:
      return "from the network";
    case Source::cache:
      return "from the cache" + fetched;
    case Source::revalidated:
      return "from the cache, confirmed by the server";
    case Source::stale:
      return "from the cache, out of date" + fetched;
  }
  return {};
}

}  // namespace paperloom::reader
