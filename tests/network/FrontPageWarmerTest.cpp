#include "paperloom/network/FrontPageWarmer.h"

#include <gtest/gtest.h>

#include "paperloom/platform/ImageDecoder.h"
#include "paperloom/testing/ScriptedServer.h"
#include "tests/network/ContentFixture.h"

namespace paperloom {
namespace {

using End = WarmingSum::End;

class FrontPageWarmerTest : public test::ContentFixture {
 protected:
  void SetUp() override { coordinator.setBaseURL(at("")); }

  WarmingSum warm(WarmingPlan plan, const std::function<void(FrontPageWarmer&)>& meanwhile = {}) {
    return warm(coordinator, std::move(plan), meanwhile);
  }
  WarmingSum warm(DataCoordinator& over, WarmingPlan plan,
                  const std::function<void(FrontPageWarmer&)>& meanwhile = {}) {
    documents.clear();
    std::optional<WarmingSum> sum;
    FrontPageWarmer warmer(over);
    plan.resolve = [this](const URL& url) { return at("/x").resolving(url.absoluteString()); };
    warmer.start(
        plan, [&](const WarmedDocument& document) { documents.push_back(document); },
        [&](const WarmingSum& all) { sum = all; });
    if (meanwhile) meanwhile(warmer);
    EXPECT_TRUE(test::pumpUntil([&] { return sum.has_value(); }));
    return sum.value_or(WarmingSum());
  }

  std::vector<WarmedDocument> documents;
  std::shared_ptr<ContentSessionManager> manager = std::make_shared<ContentSessionManager>(cache);
  DataCoordinator coordinator{manager, dates};
};

TEST_F(FrontPageWarmerTest, fetchesAllThatAFrontPageLeadsToAndSaysWhatIsKept) {
  const WarmingSum first = warm({.sections = std::vector<std::string>{"news"}});
  EXPECT_EQ(first.end, End::complete);
  EXPECT_GT(first.fetched, 8U);
  EXPECT_TRUE(first.lost.empty() && first.failed == 0 && first.leftOut == 0);
  ASSERT_EQ(documents.size(), first.fetched);
  EXPECT_EQ(documents.back().total, documents.size());
  EXPECT_EQ(documents.back().done, documents.size());
  EXPECT_EQ(documents.back().bytes, first.bytes);

  service->stop();
  const WarmingSum again = warm({.sections = std::vector<std::string>{"news"}});
  EXPECT_EQ(again.end, End::complete);
  EXPECT_EQ(again.cachedAlready, first.fetched);
  EXPECT_EQ(again.bytes, 0);
  EXPECT_EQ(warm({.frontPage = coordinator.stream()}).cachedAlready, first.fetched);
  for (const WarmedDocument& document : documents) {
    EXPECT_TRUE(manager->offlineCopy(document.url)) << document.url.absoluteString();
  }
}

TEST_F(FrontPageWarmerTest, picturesAreThoseThatTheDisplayHasRoomFor) {
  const auto widest = [&] {
    int width = 0;
    for (const WarmedDocument& document : documents) {
      const auto image = ImageDecoder::current()->decode(
          manager->offlineCopy(document.url)
              .value_or(CachedURLResponse{{document.url, 0, {}}, {}, {}, {}})
              .data.view());
      if (image) width = std::max(width, image->width());
    }
    return width;
  };
  warm({.sections = std::vector<std::string>{"news"}, .pictureWidth = 100});
  const int small = widest();
  warm({.sections = std::vector<std::string>{"news"}, .pictureWidth = 100, .pixelDensity = 9});
  EXPECT_GT(small, 0);
  EXPECT_GT(widest(), small);
}

TEST_F(FrontPageWarmerTest, keepsWithinItsBounds) {
  const std::vector<std::string> news{"news"};
  test::ScriptedServer server(
      test::answer(std::string(4'000, 'x'), "Cache-Control: max-age=9\r\n"));
  const WarmingSum two = warm({.documents = {server.url("/1"), server.url("/2"), server.url("/3")},
                               .maximumBytes = 10'000});
  EXPECT_EQ(two.end, End::outOfBytes);
  EXPECT_EQ(two.fetched, 2U);
  EXPECT_EQ(two.leftOut, 1U);
  EXPECT_EQ(two.bytes, 8'000);
  EXPECT_FALSE(manager->offlineCopy(server.url("/3")));

  const WarmingSum few = warm({.sections = news, .maximumBytes = 20'000});
  EXPECT_EQ(few.end, End::outOfBytes);
  EXPECT_GT(few.fetched, 0U);
  EXPECT_GT(few.leftOut, 0U);

  misbehave("silent=/images");
  const WarmingSum late = warm({.sections = news, .maximumTime = std::chrono::milliseconds(300)});
  EXPECT_EQ(late.end, End::outOfTime);
  EXPECT_GT(late.leftOut, 0U);
}

TEST_F(FrontPageWarmerTest, endsWhenItIsToldAndWithoutAFrontPage) {
  const std::vector<std::string> news{"news"};
  misbehave("silent=/stream");
  EXPECT_EQ(warm({.sections = news}, [](FrontPageWarmer& warmer) { warmer.cancel(); }).end,
            End::cancelled);
  misbehave("silent=/images");
  const auto cancelLater = [&](FrontPageWarmer& warmer) {
    EXPECT_TRUE(test::pumpUntil([&] { return !documents.empty(); }));
    warmer.cancel();
  };
  EXPECT_EQ(warm({.sections = news}, cancelLater).end, End::cancelled);
  {
    FrontPageWarmer abandoned(coordinator);
    abandoned.start({.sections = news}, nullptr, [](const WarmingSum&) { FAIL(); });
  }
  DispatchQueue::main().runPending();
  bool ended = false;
  auto ending = std::make_unique<FrontPageWarmer>(coordinator);
  ending->start({}, nullptr, [&](const WarmingSum&) {
    ending.reset();
    ended = true;
  });
  EXPECT_TRUE(test::pumpUntil([&] { return ended; }));

  cache->removeAllCachedResponses();
  misbehave("status=/stream:410");
  const WarmingSum none = warm({.sections = news});
  EXPECT_EQ(none.end, End::noFrontPage);
  ASSERT_TRUE(none.failure);
  EXPECT_EQ(none.failure->provenance.statusCode, 410);
}

TEST_F(FrontPageWarmerTest, whatIsNotKeptIsSaid) {
  test::ScriptedServer server(test::answer("{}", "Cache-Control: no-store\r\n"));
  const WarmingSum sum = warm({.documents = {server.url(), server.url()}});
  EXPECT_EQ(sum.fetched, 1U);
  EXPECT_EQ(sum.lost, std::vector<URL>{server.url()});
  EXPECT_EQ(sum.reason, "the others may not be stored");
  EXPECT_EQ(warm({.documents = {at("/none"), at("/config")}}).failed, 1U);

  const auto little = std::make_shared<URLCache>(0, 100'000, folder.path() / "little");
  DataCoordinator small(std::make_shared<ContentSessionManager>(little), dates);
  test::ScriptedServer many(test::answer(std::string(4'000, 'x'), "Cache-Control: max-age=9\r\n"));
  WarmingPlan plan;
  for (int i = 0; i < 30; ++i) plan.documents.push_back(many.url("/" + std::to_string(i)));
  const WarmingSum full = warm(small, plan);
  EXPECT_EQ(full.fetched, 30U);
  EXPECT_EQ(full.lost.size(), 30U - little->entries().size());
  EXPECT_EQ(full.reason, "the cache is full");

  // What is kept for the host's own headers is kept.
  test::ScriptedServer varying(
      test::answer("{}", "Cache-Control: max-age=9\r\nVary: Accept-Language\r\n"));
  URLSessionConfiguration configuration{.urlCache = cache};
  configuration.defaultHeaders.add("Accept-Language", "nb");
  DataCoordinator norwegian(std::make_shared<ContentSessionManager>(configuration), dates);
  const WarmingSum kept = warm(norwegian, {.documents = {varying.url()}});
  EXPECT_EQ(kept.fetched, 1U);
  EXPECT_TRUE(kept.lost.empty());
}

}  // namespace
}  // namespace paperloom
