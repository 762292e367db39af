#include "paperloom/platform/URLCache.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <functional>

#include "paperloom/platform/internal/base/Checksum.h"
#include "paperloom/platform/internal/sqlite/SQLite.h"
#include "paperloom/testing/TemporaryFolder.h"
#include "tests/cache/CacheTools.h"

namespace paperloom::test {
namespace {

class URLCacheTest : public testing::Test {
 protected:
  std::string rawFiles() const { return bytesBelow(folder_.path()); }

  TemporaryFolder folder_;
  const std::filesystem::path path_ = folder_.path() / "caches" / "url-cache";
};

TEST_F(URLCacheTest, anAnswerComesBackWholeFromMemoryAndFromDisk) {
  CachedURLResponse stored =
      answer(bodyFor("a", 1, 20'000),
             {{"Set-Cookie", "a"}, {"ETag", "\"x\""}, {"set-cookie", ""}, {"Empty", ""}});
  stored.response.url = *URL::parse("https://elsewhere/after?redirect#part");
  stored.response.statusCode = 404;
  URLCache cache(megabyte, 10 * megabyte, path_);
  cache.storeCachedResponse(stored, request("http://host/a#fragment"));
  const URLCache other(0, 10 * megabyte, path_);
  for (const URLCache* each : {const_cast<const URLCache*>(&cache), &other}) {
    const auto kept = each->cachedResponse(request("http://host/a"));
    ASSERT_TRUE(kept);
    EXPECT_EQ(kept->response.url, stored.response.url);
    EXPECT_EQ(kept->response.statusCode, 404);
    EXPECT_EQ(kept->response.headers, stored.response.headers);
    EXPECT_EQ(kept->data, stored.data);
    EXPECT_EQ(kept->requestTime, stored.requestTime);
    EXPECT_EQ(kept->responseTime, stored.responseTime);
  }
  const auto kept = cache.cachedResponse(request("http://host/a"));
  ASSERT_TRUE(kept);
  EXPECT_EQ(kept->data.view().data(), stored.data.view().data());
  URLRequest post = request("http://host/p");
  post.method = "POST";
  cache.storeCachedResponse(stored, post);
  EXPECT_EQ(bodyOf(cache, "http://host/p"), "(none)");
  for (const auto& each : std::filesystem::recursive_directory_iterator(folder_.path())) {
    struct stat info {};
    ASSERT_EQ(::stat(each.path().c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, each.is_directory() ? 0700U : 0600U) << each.path();
  }
}

TEST_F(URLCacheTest, changesThatAreAppliedTogetherHappenInTheirOrder) {
  // The second capacity has room for one of these at once, and the last for none of them.
  for (const std::int64_t capacity : {10 * megabyte, megabyte / 2, megabyte / 20}) {
    SCOPED_TRACE(capacity);
    const auto file = path_ / std::to_string(capacity);
    URLCache cache(megabyte, capacity, file);
    cache.storeCachedResponse(answer("old"), request("http://host/kept"));
    std::vector<URLCache::Change> changes;
    const auto change = [&](const char* url, std::optional<CachedURLResponse> response) {
      changes.push_back({request(url), std::move(response)});
    };
    change("http://host/kept", answer("overtaken"));
    change("http://host/gone", answer(bodyFor("gone", 1, 15'000)));
    change("http://host/kept", answer("new"));
    change("http://host/gone", std::nullopt);
    for (int i = 0; i < 8; ++i) {
      const std::string url = "http://host/" + std::to_string(i);
      change(url.c_str(), answer(bodyFor(url, 1, 15'000)));
    }
    cache.apply(changes);
    const URLCache other(0, capacity, file);
    for (const URLCache* each : {const_cast<const URLCache*>(&cache), &other}) {
      EXPECT_EQ(bodyOf(*each, "http://host/kept"), "new");
      EXPECT_EQ(bodyOf(*each, "http://host/gone"), "(none)");
    }
    int kept = 0;
    for (int i = 0; i < 8; ++i)
      kept += bodyOf(other, "http://host/" + std::to_string(i)) != "(none)";
    EXPECT_EQ(kept, capacity > megabyte / 4 ? 8 : 0);
  }
}

TEST_F(URLCacheTest, aStoredAnswerReplacesTheVariantsThatItsRequestFits) {
  URLCache memory;
  URLCache disk(0, 10 * megabyte, path_);
  for (URLCache* cache : {&memory, &disk}) {
    const auto store = [&](const std::string& language, const char* body, const char* vary,
                           std::int64_t time = 1'700'000'000) {
      cache->storeCachedResponse(answer(body, {{"Vary", vary}}, time),
                                 request("http://host/", {{"Language", language}}));
    };
    const auto fetch = [&](const std::string& language) {
      return bodyOf(*cache, "http://host/", {{"Language", language}});
    };
    store("de", "alt", "Language");
    store("en", "old", "Language");
    store("de", "neu", "Language");
    EXPECT_EQ(fetch("de"), "neu");
    EXPECT_EQ(fetch("en"), "old");
    store("de", "for all, later", "", 1'800'000'000);
    EXPECT_EQ(fetch("de"), "for all, later");
    EXPECT_EQ(fetch("en"), "for all, later");
    EXPECT_EQ(cache->entries().size(), 2U);
    for (int i = 0; i < 40; ++i) store(std::to_string(i), "many", "Language");
    EXPECT_LE(cache->entries().size(), 16U);
    EXPECT_EQ(fetch("39"), "many");
    cache->removeCachedResponse(request("http://host/#x"));
    EXPECT_TRUE(cache->entries().empty());
    EXPECT_EQ(cache->currentMemoryUsage() + cache->currentDiskUsage(), 0);
  }
}

TEST_F(URLCacheTest, theFileCountsWhatItHoldsAndEveryChangeOfItOnce) {
  URLCache cache(0, megabyte, path_);
  const auto store = [&](const char* url, std::size_t size = 100) {
    cache.storeCachedResponse(answer(std::string(size, 'x')), request(url));
  };
  store("http://host/a");
  auto file = internal::SQLiteDatabase::open(cache.diskFile(), {});
  ASSERT_TRUE(file);
  const auto number = [&](const char* sql) { return file->integer(sql).value_or(-1); };
  const struct {
    const char* what;
    std::function<void()> deed;
    int rows, changes;
  } table[] = {
      {"replaced", [&] { store("http://host/a"); }, 1, 1},
      {"another", [&] { store("http://host/b"); }, 2, 1},
      {"several",
       [&] {
         cache.apply({{request("http://host/c"), answer("c")},
                      {request("http://host/d"), answer("d")},
                      {request("http://host/c"), std::nullopt}});
       },
       3, 1},
      {"looked up", [&] { bodyOf(cache, "http://host/a"); }, 3, 0},
      {"nothing removed", [&] { cache.removeCachedResponse(request("http://host/z")); }, 3, 0},
      {"removed", [&] { cache.removeCachedResponse(request("http://host/d")); }, 2, 1},
      {"too large", [&] { store("http://host/z", megabyte / 20); }, 2, 0},
      {"too large for its place", [&] { store("http://host/a", megabyte / 20); }, 1, 1},
      {"cleared", [&] { cache.removeAllCachedResponses(); }, 0, 1},
      {"nothing cleared", [&] { cache.removeAllCachedResponses(); }, 0, 0},
  };
  for (const auto& row : table) {
    SCOPED_TRACE(row.what);
    const auto before = number("SELECT changes FROM state");
    row.deed();
    EXPECT_EQ(number("SELECT changes FROM state") - before, row.changes);
    EXPECT_EQ(number("SELECT count(*) FROM uses"), row.rows);
    EXPECT_EQ(number("SELECT count(*) FROM answers NATURAL JOIN uses"), row.rows);
    EXPECT_EQ(number("SELECT bytes - (SELECT CAST(total(size) AS INTEGER) FROM uses) FROM state"),
              0);
    EXPECT_EQ(number("SELECT clock < (SELECT coalesce(max(used), 0) FROM uses) FROM state"), 0);
    EXPECT_EQ(number("SELECT scrub FROM state"), 0);
  }
}

TEST_F(URLCacheTest, aVaryingSecretIsNowhereInTheFile) {
  {
    URLCache cache(0, megabyte, path_);
    cache.storeCachedResponse(answer("mine", {{"Vary", "Authorization"}}),
                              request("http://host/", {{"Authorization", "Bearer Tr0ub4dor"}}));
    EXPECT_EQ(bodyOf(cache, "http://host/", {{"Authorization", "Bearer Tr0ub4dor"}}), "mine");
    EXPECT_EQ(bodyOf(cache, "http://host/", {{"Authorization", "Bearer other"}}), "(none)");
  }
  EXPECT_NE(rawFiles().find("authorization"), std::string::npos);
  EXPECT_EQ(rawFiles().find("Tr0ub4dor"), std::string::npos);
}

TEST_F(URLCacheTest, theLeastRecentlyUsedGoFirstInMemoryAndOnDisk) {
  const auto store = [&](URLCache& cache, int from, int to) {
    for (int i = from; i < to; ++i) {
      cache.storeCachedResponse(answer(bodyFor(url(i), 0, 25'000)), request(url(i)));
    }
  };
  {
    URLCache memory(megabyte, 0, "");
    URLCache tiers(megabyte, megabyte, path_);
    const URLCache disk(0, megabyte, path_);
    for (URLCache* cache : {&memory, &tiers}) store(*cache, 0, 40);
    for (int i = 0; i < 10; ++i) {
      EXPECT_NE(bodyOf(memory, url(i)), "(none)");
      EXPECT_NE(bodyOf(i < 5 ? tiers : disk, url(i)), "(none)");
    }
    EXPECT_EQ(tiers.statistics().memoryHits * 10 + disk.statistics().diskHits, 55);
    EXPECT_EQ(tiers.entries().size(), 40U);
    store(memory, 40, 60);
    for (int i = 0; i < 60; ++i) {
      EXPECT_EQ(bodyOf(memory, url(i)) != "(none)", i < 10 || i > 28) << i;
    }
  }
  // The uses outlive the process.
  URLCache both(megabyte, megabyte, path_);
  store(both, 40, 60);
  for (int i = 0; i < 60; ++i) {
    if (i >= 28 && i < 40) continue;  // how many of these go depends on the pages
    const bool kept = i < 10 || i >= 40;
    EXPECT_EQ(bodyOf(both, url(i)), kept ? bodyFor(url(i), 0, 25'000) : "(none)") << i;
  }
  EXPECT_GT(both.currentDiskUsage(), megabyte * 9 / 10);
  constexpr std::int64_t less = megabyte * 3 / 4;
  EXPECT_LE(URLCache(0, less, path_).currentDiskUsage(), less);
  both.setDiskCapacity(megabyte / 2);
  both.setMemoryCapacity(megabyte / 2);
  EXPECT_LE(both.currentDiskUsage(), megabyte / 2);
  EXPECT_LE(both.currentMemoryUsage(), megabyte / 2);
  EXPECT_LT(std::filesystem::file_size(both.diskFile()), megabyte * 6 / 10);
  EXPECT_EQ(bodyOf(both, url(59)), bodyFor(url(59), 0, 25'000));
  both.setDiskCapacity(0);
  both.setMemoryCapacity(0);
  EXPECT_TRUE(both.entries().empty());
}

TEST_F(URLCacheTest,
       whatItHoldsIsListedMostRecentlyUsedFirstAndSmallAnswersFillNoMoreThanTheirShare) {
  URLCache memory;
  URLCache disk(0, megabyte / 5, path_);
  for (URLCache* cache : {&memory, &disk}) {
    for (const char* name : {"a", "b", "c"}) {
      cache->storeCachedResponse(answer("body", {{"ETag", name}}),
                                 request(std::string("http://host/") + name));
    }
    bodyOf(*cache, "http://host/a");
    std::string order;
    for (const auto& entry : cache->entries()) {
      order += entry.response.response.headers.first("ETag").value_or("?");
      EXPECT_EQ(entry.onDisk, cache == &disk);
      EXPECT_TRUE(entry.response.data.empty());
      EXPECT_GT(entry.size, 30);
    }
    EXPECT_EQ(order, "acb");
  }
  // Most of a page's bytes are SQLite's own then.
  for (int i = 0; i < 3000; ++i) {
    disk.storeCachedResponse(answer(""), request("http://h/" + std::to_string(i)));
  }
  EXPECT_LE(std::filesystem::file_size(disk.diskFile()), megabyte / 5 * 3 / 2);
}

TEST_F(URLCacheTest, whatIsToldAtOnceIsWhatTheFileHolds) {
  const std::string old = "http://host/old";
  const std::string fresh = "http://host/fresh";
  const std::string never = "http://host/never";
  URLCache(0, 10 * megabyte, path_).storeCachedResponse(answer("old"), request(old));
  URLCache cache(megabyte, 10 * megabyte, path_);
  // It tells more for a while after a look-up, so there is one before each attempt.
  const auto told = [&](const std::string& url) {
    std::string text = "(unknown)";
    for (int i = 0; i < 20 && text == "(unknown)"; ++i) {
      bodyOf(cache, "http://host/looked-up");
      const auto before = cache.statistics().lookUps;
      text = toldAtOnce(cache, url);
      EXPECT_EQ(cache.statistics().lookUps - before, text == "(unknown)" ? 0 : 1);
    }
    return text;
  };
  EXPECT_EQ(toldAtOnce(cache, old), "(unknown)");
  EXPECT_EQ(told(never), "(unknown)");
  cache.settle();
  EXPECT_EQ(told(never), "(none)");
  EXPECT_EQ(told(old), "(unknown)");
  EXPECT_EQ(bodyOf(cache, old), "old");
  EXPECT_EQ(told(old), "old");
  cache.storeCachedResponse(answer("fresh"), request(fresh));
  EXPECT_EQ(told(fresh), "fresh");
  EXPECT_EQ(told(never), "(none)");
  URLCache other(megabyte, 10 * megabyte, path_);
  other.storeCachedResponse(answer("newer"), request(fresh));
  other.storeCachedResponse(answer("others"), request(never));
  cache.storeCachedResponse(answer("old"),
                            request(old));  // which says nothing of the others' writes
  EXPECT_NE(toldAtOnce(cache, never), "(none)");
  EXPECT_EQ(told(fresh), "(unknown)");
  EXPECT_EQ(told(never), "(unknown)");
  EXPECT_EQ(bodyOf(cache, fresh), "newer");
  cache.removeAllCachedResponses();
  for (const std::string& url : {old, fresh, never}) EXPECT_NE(told(url), "old") << url;
  EXPECT_EQ(bodyOf(cache, fresh), "(none)");
}

TEST_F(URLCacheTest, anAnswerAboveATwentiethOfTheCapacityEvictsNothing) {
  URLCache memory(megabyte, 0, "");
  URLCache disk(0, megabyte, path_);
  for (URLCache* cache : {&memory, &disk}) {
    cache->storeCachedResponse(answer("a"), request("http://host/a"));
    cache->storeCachedResponse(answer("b"), request("http://host/b"));
    const std::string large(megabyte / 20, 'x');
    cache->storeCachedResponse(answer(large), request("http://host/c"));
    EXPECT_EQ(bodyOf(*cache, "http://host/c"), "(none)");
    // An outdated copy is not kept in its place.
    cache->storeCachedResponse(answer(large), request("http://host/a"));
    EXPECT_EQ(bodyOf(*cache, "http://host/a"), "(none)");
    EXPECT_EQ(bodyOf(*cache, "http://host/b"), "b");
  }
}

TEST_F(URLCacheTest, clearingLeavesNothingBehind) {
  URLCache cache(megabyte, 4 * megabyte, path_);
  std::string needle = "FINDME";
  for (int i = 0; i < 100; ++i) {
    std::string body;
    for (int j = 0; j < 3000; ++j) body += needle;
    cache.storeCachedResponse(answer(body, {{"X", needle}}),
                              request("http://host/" + needle + std::to_string(i)));
  }
  cache.removeCachedResponse(request("http://host/" + needle + "99"));
  EXPECT_NE(rawFiles().find(needle), std::string::npos);
  cache.removeAllCachedResponses();
  EXPECT_EQ(rawFiles().find(needle), std::string::npos);
  EXPECT_LT(rawFiles().size(), 100'000U);
  EXPECT_EQ(cache.currentDiskUsage(), 0);
  EXPECT_EQ(bodyOf(cache, "http://host/" + needle + "1"), "(none)");
  cache.storeCachedResponse(answer("new"), request("http://host/new"));
  EXPECT_EQ(bodyOf(cache, "http://host/new"), "new");
}

TEST_F(URLCacheTest, whatIsStoredAfterTheFileWasRewrittenIsThereAfterTheNextStart) {
  const auto store = [&](URLCache& cache, int i) {
    cache.storeCachedResponse(answer(bodyFor(url(i), 0, 20'000)), request(url(i)));
  };
  using Rewrite = void (*)(URLCache&);
  const Rewrite rewrites[] = {
      [](URLCache&) {},
      [](URLCache& cache) { cache.removeAllCachedResponses(); },
      [](URLCache& cache) { cache.setDiskCapacity(megabyte); },
      [](URLCache& cache) { cache.setDiskCapacity(0), cache.setDiskCapacity(4 * megabyte); },
  };
  int number = 0;
  for (const Rewrite rewrite : rewrites) {
    SCOPED_TRACE(number++);
    {
      URLCache cache(0, 4 * megabyte, path_);
      for (int i = 0; i < 100; ++i) store(cache, i);
      rewrite(cache);
      for (int i = 100; i < 110; ++i) store(cache, i);
    }
    for (int start = 0; start < 2; ++start) {
      const URLCache cache(0, 4 * megabyte, path_);
      for (int i = 100; i < 110; ++i) EXPECT_EQ(bodyOf(cache, url(i)), bodyFor(url(i), 0, 20'000));
    }
    std::filesystem::remove_all(path_);
  }
}

TEST(ChecksumTest, isXXH3) {
  // Of the test vectors that its authors publish.
  constexpr std::uint64_t generatorStep = 11400714785074694797U;
  std::string bytes;
  for (std::uint64_t state = 2654435761; bytes.size() < 512; state *= generatorStep) {
    bytes += static_cast<char>(state >> 56);
  }
  const struct {
    std::size_t size;
    std::uint64_t seed, sum;
  } cases[] = {
      {0, 0, 0x2D06800538D394C2},
      {1, 0, 0xC44BDFF4074EECDB},
      {12, 0, 0xA713DAF0DFBB77E7},
      {195, 0, 0xCD94217EE362EC3A},
      {512, 0, 0x617E49599013CB6B},
      {1, generatorStep, 0x032BE332DD766EF8},
      {80, generatorStep, 0xC6DD0CB699532E73},
      {512, generatorStep, 0x3CE457DE14C27708},
  };
  for (const auto& [size, seed, sum] : cases) {
    EXPECT_EQ(internal::checksum(bytes.substr(0, size), seed), sum) << size;
  }
}

}  // namespace
}  // namespace paperloom::test
