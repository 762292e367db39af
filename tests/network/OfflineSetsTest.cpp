#include "paperloom/platform/OfflineSets.h"

#include <gtest/gtest.h>

#include <atomic>
#include <fstream>

#include "paperloom/network/FrontPageWarmer.h"
#include "paperloom/network/News.h"
#include "paperloom/testing/FullDisk.h"
#include "paperloom/testing/ScriptedServer.h"
#include "tests/network/ContentFixture.h"

namespace paperloom::test {
namespace {

using End = WarmingSum::End;
using Kind = OfflineSet::Root::Kind;

class OfflineSetsTest : public ContentFixture {
 protected:
  void SetUp() override { coordinator.setBaseURL(at("")); }

  std::filesystem::path kept() const { return folder.path() / "kept"; }
  std::vector<std::filesystem::path> files() const {
    const std::filesystem::directory_iterator all(kept());
    return {begin(all), end(all)};
  }
  std::shared_ptr<OfflineSets> open(std::int64_t capacity = 10'000'000) const {
    return std::make_shared<OfflineSets>(capacity, kept());
  }

  static const URL& story() {
    static const URL url = *URL::parse("http://paper.example/story#top");
    return url;
  }
  static CachedURLResponse response(const std::string& body, HTTPHeaders fields = {}) {
    return {{story(), 200, std::move(fields)}, Data(body), currentDate(), currentDate()};
  }
  static std::string make(OfflineSets& sets, const std::string& name, const std::string& body) {
    auto writer = sets.write(name, {{Kind::article, story()}});
    if (!writer) return writer.error();
    if (const auto added = writer->add(story(), response(body)); !added) return added.error();
    const auto set = writer->commit();
    return set ? "kept" : set.error();
  }
  static std::string bodyIn(const OfflineSets& sets) {
    const auto copy = sets.copy(*URL::parse("http://paper.example/story"));
    return copy ? std::string(copy->data.view()) : "none";
  }

  WarmingSum warm(WarmingPlan plan) {
    std::optional<WarmingSum> sum;
    plan.offlineSets = sets;
    if (plan.keepAs.empty()) plan.keepAs = "morning";
    plan.resolve = [this](const URL& url) { return at("/x").resolving(url.absoluteString()); };
    FrontPageWarmer warmer(coordinator);
    warmer.start(std::move(plan), nullptr, [&](const WarmingSum& all) { sum = all; });
    EXPECT_TRUE(pumpUntil([&] { return sum.has_value(); }));
    return sum.value_or(WarmingSum());
  }

  const std::vector<std::string> news{"news"};
  std::shared_ptr<OfflineSets> sets = open();
  std::shared_ptr<ContentSessionManager> manager = std::make_shared<ContentSessionManager>(cache);
  DataCoordinator coordinator{manager, dates};
};

TEST_F(OfflineSetsTest, anyTextIsANameAndNoneLeavesTheFolder) {
  const std::string names[] = {"../../x", "/etc/passwd",          ".",
                               "a\nb",    "\xC3\xA4 \"1\"",       "A",
                               "a",       std::string(1000, 'n'), std::string("a\0b", 3)};
  for (const std::string& name : names) EXPECT_EQ(make(*sets, name, name), "kept") << name;
  EXPECT_EQ(files().size(), std::size(names));
  for (const std::string& name : names) {
    ASSERT_TRUE(open()->set(name)) << name;
    EXPECT_TRUE(sets->remove(name)) << name;
  }
  EXPECT_TRUE(files().empty());
  EXPECT_FALSE(sets->remove("A"));
  for (const std::string& name : {std::string(), std::string(1001, 'n'), std::string("\xFF")}) {
    EXPECT_FALSE(sets->write(name, {})) << name;
  }
}

TEST_F(OfflineSetsTest, whatIsDamagedIsSaidAndCostsNothingElse) {
  struct Row {
    const char* what;
    std::function<void(std::string&)> damage;
    std::string name;  // none when it goes by that of its file
    bool isDamaged = true;
  };
  const auto flip = [](const char* text) {
    return [text](std::string& bytes) { bytes[bytes.find(text)] ^= 1; };
  };
  const Row rows[] = {
      {"nothing", [](std::string&) {}, "mine", false},
      {"body", flip("the body"), "mine", false},
      {"index", flip("fetchedAt"), "mine"},
      {"name", flip("mine"), ""},
      {"mark", flip("plset"), ""},
      {"length", [](std::string& bytes) { bytes[15] = '\x7F'; }, ""},
      {"end", [](std::string& bytes) { bytes.back() ^= 1; }, "mine"},
      {"place of the index", [](std::string& bytes) { bytes[bytes.size() - 17] = '\x7F'; }, "mine"},
      {"cut", [](std::string& bytes) { bytes.resize(bytes.size() / 2); }, "mine"},
      {"emptied", [](std::string& bytes) { bytes.clear(); }, ""},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    std::filesystem::remove_all(kept());
    ASSERT_EQ(make(*sets, "mine", "the body"), "kept");
    const auto file = files().front();
    std::ifstream in(file, std::ios::binary);
    std::string bytes((std::istreambuf_iterator<char>(in)), {});
    row.damage(bytes);
    std::ofstream(file, std::ios::binary) << bytes;
    ASSERT_EQ(make(*sets, "other", "the other"), "kept");
    for (const auto& found : {sets, open()}) {
      const auto all = found->sets();
      ASSERT_EQ(all.size(), 2U);
      const OfflineSet& mine = all[all[0].name == "other" ? 1 : 0];
      EXPECT_EQ(mine.name, row.name.empty() ? file.stem().string() : row.name);
      EXPECT_EQ(mine.isDamaged, row.isDamaged);
      EXPECT_EQ(bodyIn(*found), "the other");
      EXPECT_FALSE(found->set("other")->isDamaged);
    }
    EXPECT_TRUE(sets->remove(sets->sets()[sets->sets()[0].name == "other" ? 1 : 0].name));
    EXPECT_EQ(files().size(), 1U);
  }
  std::filesystem::create_symlink("/etc/passwd", kept() / "00.set");
  EXPECT_EQ(sets->sets().size(), 1U);
}

TEST_F(OfflineSetsTest, theOldOneStaysUntilTheNextIsWhole) {
  const auto others = open();  // as another process has them
  ASSERT_EQ(make(*sets, "mine", "old"), "kept");
  {
    auto writer = sets->write("mine", {});
    ASSERT_TRUE(writer && writer->add(story(), response("new")));
    EXPECT_EQ(bodyIn(*others), "old");
    EXPECT_TRUE(writer->commit());
  }
  EXPECT_EQ(bodyIn(*others), "new");
  {
    auto writer = sets->write("mine", {});
    ASSERT_TRUE(writer && writer->add(story(), response("newer")));
    EXPECT_EQ(others->write("mine", {}).error(), "the set is being fetched already");
    EXPECT_EQ(others->sets().size(), 1U);
    EXPECT_EQ(bodyIn(*others), "new");
  }
  EXPECT_EQ(make(*others, "mine", "newest"), "kept");
  EXPECT_EQ(bodyIn(*sets), "newest");
  {
    const FullDisk full(64 * 1024);
    EXPECT_EQ(make(*sets, "mine", std::string(100'000, 'x')), "the disk is full");
  }
  const auto small = open(2'000);
  EXPECT_EQ(make(*small, "more", std::string(1'500, 'x')),
            "the sets would grow beyond their capacity");
  EXPECT_EQ(make(*small, "mine", std::string(2'500, 'x')),
            "the sets would grow beyond their capacity");
  EXPECT_EQ(bodyIn(*sets), "newest");
  EXPECT_EQ(files().size(), 1U);
}

TEST_F(OfflineSetsTest, anEvictedFrontPageIsReadFromItsSet) {
  manager = std::make_shared<ContentSessionManager>(
      std::make_shared<URLCache>(0, 200'000, folder.path() / "small"));
  DataCoordinator small(manager, dates);
  small.setBaseURL(at(""));
  const WarmingSum sum = warm({.sections = news, .pictureWidth = 320});
  ASSERT_TRUE(sum.set) << sum.setTrouble;
  EXPECT_EQ(sum.set->urls.size(), sum.fetched);
  EXPECT_TRUE(sum.set->missing.empty());
  service->stop();

  EXPECT_FALSE(News(small).stream({"news"}).get());
  manager->setOfflineSets(open());
  const auto stream = News(small).stream({"news"}).get();
  ASSERT_TRUE(stream);
  EXPECT_TRUE(stream->provenance.fromCache);
  EXPECT_EQ(stream->provenance.error->code, URLError::Code::cannotConnectToHost);
  for (const URL& url : sum.set->urls) {
    const bool isPicture = url.absoluteString().find("/images/") != std::string::npos;
    const bool isStory = url.absoluteString().find("/articles/") != std::string::npos;
    const std::string& address = url.absoluteString();
    if (isPicture) {
      EXPECT_TRUE(News(small).image(url).getOnMainQueue()) << address;
    }
    if (isStory) {
      EXPECT_TRUE(News(small).article(url).getOnMainQueue()) << address;
    }
  }
  EXPECT_FALSE(News(small).stream({"sport"}).get());
  // Ahead of the server's answer, too.
  std::string answers;
  std::atomic<int> answered = 0;
  small.requestStreamForSections(
      news, Refresh::afterTheCopy(), [&](const auto&, const Provenance& from) {
        answers += from.isFollowed && !from.fromCache ? "copy;" : "copy again;";
        ++answered;
      });
  EXPECT_TRUE(pumpUntil([&] { return answered == 2; }));
  EXPECT_EQ(answers, "copy;copy again;");
}

TEST_F(OfflineSetsTest, theNewerCopyCounts) {
  const ScriptedServer server({closeConnection()});
  const URL url = server.url("/a");
  manager->setOfflineSets(sets);
  for (const bool cacheIsNewer : {false, true}) {
    const auto keep = [&](const std::string& headline, bool inSet) {
      const Date then = currentDate() - std::chrono::hours(inSet == cacheIsNewer ? 2 : 1);
      const CachedURLResponse copy{
          {url, 200, {}}, Data("{\"headline\":\"" + headline + "\"}"), then, then};
      if (!inSet) return cache->storeCachedResponse(copy, URLRequest(url));
      auto writer = sets->write("mine", {});
      ASSERT_TRUE(writer && writer->add(url, copy) && writer->commit());
    };
    keep("set", true);
    keep("cache", false);
    const auto article = News(coordinator).article(url).getOnMainQueue();
    ASSERT_TRUE(article);
    EXPECT_EQ(article->record->headline(), cacheIsNewer ? "cache" : "set");
    EXPECT_GE(article->provenance.age, std::chrono::minutes(59));
    EXPECT_LE(article->provenance.age, std::chrono::minutes(61));
  }
}

TEST_F(OfflineSetsTest, isFetchedAnewAsAWholeOrNotAtAll) {
  ASSERT_TRUE(warm({.sections = news}).set);
  const OfflineSet first = *sets->set("morning");
  const std::string story = "/articles/storm-edda-live";
  struct Row {
    std::string faults;
    std::string trouble;  // none when the next one is in place
    std::size_t missing = 0;
    std::int64_t bytes = 10'000'000;
  };
  const Row rows[] = {
      {"status=" + story + ":500", story + ": the server answers with status 500"},
      {"status=" + story + ":429", story + ": the server answers with status 429"},
      {"status=" + story + ":404", "", 1},
      {"status=/stream:404", "/stream: the server answers with status 404"},
      {"cut=" + story + ":100", story},
      {"", "it needs more bytes than are allowed", 0, 5'000},
      {"", ""},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.faults);
    const Date before = sets->set("morning")->fetchedAt;
    misbehave(row.faults);
    WarmingPlan plan = refreshPlan(*sets->set("morning"));
    EXPECT_EQ(plan.keepAs, "morning");
    plan.maximumBytes = row.bytes;
    cache->removeAllCachedResponses();
    const WarmingSum sum = warm(std::move(plan));
    EXPECT_NE(sum.setTrouble.find(row.trouble), std::string::npos) << sum.setTrouble;
    EXPECT_EQ(sum.set.has_value(), row.trouble.empty()) << sum.setTrouble;
    const OfflineSet now = *sets->set("morning");
    EXPECT_EQ(now.fetchedAt > before, row.trouble.empty());
    if (row.missing == 0 && row.trouble.empty()) {
      EXPECT_EQ(now.urls, first.urls);
    }
    if (row.trouble.empty()) {
      EXPECT_EQ(now.missing.size(), row.missing);
    }
    EXPECT_EQ(files().size(), 1U);
  }
}

TEST_F(OfflineSetsTest, takesNoPortalAndNothingThatMayNotBeKept) {
  const auto said = [&](const std::string& fields, const std::string& body, auto member) {
    const ScriptedServer server(answer(body, fields));
    WarmingPlan plan;
    (plan.*member) = {server.url("/a")};
    const WarmingSum sum = warm(std::move(plan));
    EXPECT_EQ(sum.end == End::complete, sum.set.has_value());
    const auto after = sum.setTrouble.find(": ");
    return sum.set ? "kept" : after == std::string::npos ? "?" : sum.setTrouble.substr(after + 2);
  };
  const std::string page = "Content-Type: text/html\r\nCache-Control: max-age=9\r\n";
  const std::string portal = "something else came in its place";
  EXPECT_EQ(said(page, "<p>", &WarmingPlan::articles), portal);
  EXPECT_EQ(said(page, "<p>", &WarmingPlan::documents), "kept");
  EXPECT_EQ(said("", "[]", &WarmingPlan::frontPages), portal);
  EXPECT_EQ(said("Cache-Control: no-store\r\n", "{}", &WarmingPlan::articles),
            "the server forbids to keep it");
  EXPECT_EQ(warm({}).setTrouble, "there is nothing to keep");
}

}  // namespace
}  // namespace paperloom::test
