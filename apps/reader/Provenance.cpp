#include "apps/reader/Provenance.h"

#include <algorithm>

#include "apps/reader/Text.h"

namespace paperloom::reader {

using Source = Provenance::Source;

std::string word(const Provenance& provenance) {
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
  return {};
}

std::string sentence(const Provenance& provenance) {
  std::string fetched;
  if (provenance.fetchedAt) {
    const auto since =
        std::chrono::floor<std::chrono::seconds>(currentDate() - *provenance.fetchedAt);
    fetched = ", fetched " + ago(std::max(since, std::chrono::seconds(0)));
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

}  // namespace paperloom::reader
