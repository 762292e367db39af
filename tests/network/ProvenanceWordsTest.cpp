#include "paperloom/network/ProvenanceWords.h"

#include <gtest/gtest.h>

namespace paperloom {
namespace {

TEST(ProvenanceWordsTest, sayWhereADocumentCameFromAndHowLongAgo) {
  using Source = Provenance::Source;
  using std::chrono::seconds;
  const Date now = currentDate();
  struct Row {
    Source source;
    bool fromCache;
    std::optional<seconds> age;
    std::string name;
    std::string words;
  };
  const Row rows[] = {
      {Source::network, false, seconds(90), "network", "from the network"},
      {Source::cache, false, seconds(-5), "cache", "from the cache, fetched just now"},
      {Source::cache, false, seconds(1), "cache", "from the cache, fetched just now"},
      {Source::cache, false, seconds(59), "cache", "from the cache, fetched 59 seconds ago"},
      {Source::cache, false, seconds(60), "cache", "from the cache, fetched 1 minute ago"},
      {Source::cache, false, seconds(7'199), "cache", "from the cache, fetched 1 hour ago"},
      {Source::cache, false, std::nullopt, "cache", "from the cache"},
      {Source::stale, false, seconds(172'800), "stale",
       "from the cache, out of date, fetched 2 days ago"},
      {Source::stale, true, seconds(3), "cache",
       "from the cache, as the server gives no answer, fetched 3 seconds ago"},
      {Source::revalidated, false, seconds(3), "revalidated",
       "from the cache, confirmed by the server"},
      {Source::library, false, std::nullopt, "library",
       "from the copy that comes with the library"},
  };
  for (const Row& row : rows) {
    Provenance provenance{.source = row.source, .fromCache = row.fromCache};
    if (row.age) provenance.fetchedAt = now - *row.age;
    EXPECT_EQ(describe(provenance, now), row.words);
    EXPECT_EQ(sourceName(provenance), row.name) << row.words;
  }
}

}  // namespace
}  // namespace paperloom
