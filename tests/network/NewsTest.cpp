#include "paperloom/network/News.h"

#include <gtest/gtest.h>

#include <thread>

#include "paperloom/identity/Account.h"
#include "paperloom/network/AuthSessionManager.h"
#include "tests/network/ContentFixture.h"

namespace paperloom {
namespace {

class NewsTest : public test::ContentFixture {
 protected:
  void SetUp() override { coordinator.setBaseURL(at("")); }

  const std::thread::id here = std::this_thread::get_id();
  std::shared_ptr<ContentSessionManager> manager = std::make_shared<ContentSessionManager>(cache);
  DataCoordinator coordinator{manager, dates};
  News news{coordinator};
};

TEST_F(NewsTest, answersAreWaitedForOnAnyThreadAndOnTheOneThatPumps) {
  const auto stream = news.stream({"news"}).get();
  ASSERT_TRUE(stream);
  const URL url = stream->record->sections().front()->articleHeaders().front()->URL();
  EXPECT_TRUE(news.article(url).getOnMainQueue());
  EXPECT_TRUE(news.image(at("/images/harbour-640.jpg")).getOnMainQueue());
  EXPECT_TRUE(news.appMetadata().getOnMainQueue());
  EXPECT_EQ(news.offlineStream().get()->provenance.source, Provenance::Source::library);
  auto later = news.article(url).future();
  EXPECT_TRUE(test::pumpUntil(
      [&] { return later.wait_for(std::chrono::seconds(0)) == std::future_status::ready; }));
  EXPECT_TRUE(later.get());

  const auto none = news.article(at("/articles/none")).getOnMainQueue();
  ASSERT_FALSE(none);
  EXPECT_EQ(none.error().provenance.statusCode, 404);
  const auto noImage = news.image(at("/config")).getOnMainQueue();
  ASSERT_FALSE(noImage);
  EXPECT_EQ(noImage.error().provenance.statusCode, 200);
  const auto warmed = savedToCache(coordinator.cacheWarmerDataCoordinator(), url, false).get();
  EXPECT_TRUE(std::holds_alternative<cachewarmer::SuccessFromCache>(warmed));
}

TEST_F(NewsTest, requestsThatEndWithoutAnAnswerAreAnsweredWithAFailure) {
  AuthDataCoordinator nowhere(std::make_shared<AuthSessionManager>());
  const auto entitlement = Account(nowhere).checkEntitlement("token").get();
  EXPECT_TRUE(std::holds_alternative<request::InternalError>(entitlement));

  misbehave("silent=/");
  Subscription owner;
  auto stream = News(coordinator, owner).stream({"news"}).future();
  owner.cancel();
  const auto answer = test::await(std::move(stream));
  ASSERT_FALSE(answer);
  EXPECT_EQ(answer.error().provenance.error->code, URLError::Code::cancelled);
  EXPECT_TRUE(test::pumpUntil([&] { return manager->taskCount() == 0; }));
}

#ifdef PAPERLOOM_HAS_COROUTINES
struct Walk {
  std::promise<std::thread::id> stream;
  std::promise<std::thread::id> article;
  std::promise<std::string> end;
};

Detached walk(News news, Walk& walk) {
  const auto stream = co_await news.stream({"news", "sport"});
  walk.stream.set_value(std::this_thread::get_id());
  if (!stream) co_return walk.end.set_value(stream.error().error.details());
  const auto& section = *stream->record->sections().front();
  const auto article = co_await news.article(section.articleHeaders().front()->URL());
  walk.article.set_value(std::this_thread::get_id());
  const auto again = co_await news.stream({"news"}).onMainQueue();
  EXPECT_EQ(std::this_thread::get_id(), walk.article.get_future().get());
  walk.end.set_value(article && again ? "done" : "failed");
}

TEST_F(NewsTest, coroutinesGoOnWhereTheCallbackRunsOrOnTheMainQueue) {
  Walk walked;
  walk(news, walked);
  auto end = walked.end.get_future();
  EXPECT_TRUE(test::pumpUntil(
      [&] { return end.wait_for(std::chrono::seconds(0)) == std::future_status::ready; }));
  EXPECT_EQ(end.get(), "done");
  EXPECT_NE(test::await(walked.stream.get_future()), here);

  coordinator.setBaseURL(std::nullopt);
  Walk atOnce;
  walk(news, atOnce);
  EXPECT_EQ(test::await(atOnce.end.get_future()), "Request Stream - No Base URL");
}

TEST_F(NewsTest, coroutinesOfAnOwnerThatHasGoneComeToTheirEnd) {
  misbehave("silent=/");
  std::optional<Subscription> owner(std::in_place);
  Walk walked;
  walk(News(coordinator, *owner), walked);
  owner.reset();
  EXPECT_EQ(test::await(walked.end.get_future()), "no network error : cancelled");
}
#endif

}  // namespace
}  // namespace paperloom
