#include "paperloom/network/DataCoordinator.h"

#include <gtest/gtest.h>

#include <atomic>
#include <optional>
#include <thread>

#include "paperloom/model/ArticleParser.h"
#include "tests/network/ContentFixture.h"
#include "tests/support/ScriptedServer.h"

namespace paperloom {
namespace {

class DataCoordinatorTests : public test::ContentFixture {
 protected:
  void SetUp() override { coordinator.setBaseURL(at("")); }

  Result<std::shared_ptr<const StreamProtocol>> stream(const std::vector<std::string>& sections) {
    std::promise<Result<std::shared_ptr<const StreamProtocol>>> answered;
    coordinator.requestStreamForSections(
        sections,
        [&](auto stream) {
          EXPECT_NE(std::this_thread::get_id(), caller);
          answered.set_value(std::move(stream));
        },
        [&](PaperloomError error) { answered.set_value(tl::unexpected(std::move(error))); });
    return test::await(answered.get_future());
  }

  // Article and image answers come on the main queue, which is this thread.
  std::optional<Result<std::shared_ptr<const ArticleProtocol>>> article(const URL& url) {
    std::optional<Result<std::shared_ptr<const ArticleProtocol>>> answer;
    coordinator.requestArticle(
        url,
        [&](auto article, const Provenance& from) {
          EXPECT_EQ(std::this_thread::get_id(), caller);
          answer = std::move(article);
          provenance = from;
        },
        [&](PaperloomError error) { answer = tl::unexpected(std::move(error)); });
    EXPECT_TRUE(test::pumpUntil([&] { return answer.has_value(); }));
    return answer;
  }

  URL firstArticle() {
    const auto front = stream({});
    return (*front)->sections().front()->articleHeaders().front()->URL();
  }

  Provenance provenance;  // of the last article
  const std::thread::id caller = std::this_thread::get_id();
  std::shared_ptr<ContentSessionManager> manager = std::make_shared<ContentSessionManager>(cache);
  DataCoordinator coordinator{manager, dates};
};

TEST_F(DataCoordinatorTests, asksForTheSectionsBelowTheBaseURL) {
  const std::pair<std::string, std::vector<std::string>> table[] = {
      {"/", {"news", "sport"}}, {"?token=1", {"a b", "c&d"}}, {"/api/?x=y", {}}};
  const std::string targets[] = {"/stream?uids=news,sport", "/stream?uids=a%20b,c%26d",
                                 "/api/stream?uids="};
  for (std::size_t i = 0; i < std::size(table); ++i) {
    coordinator.setBaseURL(at(table[i].first));
    stream(table[i].second);
    EXPECT_EQ(service->requests().back().target, targets[i]);
  }
  coordinator.setBaseURL(at("/?token=1"));
  std::promise<void> failed;
  coordinator.requestAppMetadata([&](auto) { failed.set_value(); },
                                 [&](PaperloomError) { failed.set_value(); });
  test::await(failed.get_future());
  EXPECT_EQ(service->requests().back().target, "/config?token=1");
}

TEST_F(DataCoordinatorTests, withoutABaseURLFailsAtOnce) {
  coordinator.setBaseURL(std::nullopt);
  std::vector<std::string> failures;
  const auto note = [&](PaperloomError error) {
    EXPECT_EQ(error.which(), PaperloomError::Case::configurationError);
    failures.push_back(error.details());
  };
  coordinator.requestAppMetadata([](auto) {}, note);
  coordinator.requestStreamForSections(
      {}, [](auto) {}, note);
  coordinator.requestOfflineStream([](auto) {}, note);
  coordinator.requestOfflineStream([](auto) {});
  EXPECT_EQ(failures, (std::vector<std::string>{"Request Stream - No config URL",
                                                "Request Stream - No Base URL",
                                                "Request Stream - No Base URL"}));
  EXPECT_TRUE(service->requests().empty());
}

TEST_F(DataCoordinatorTests, keepsTheLastConfigurationAndStream) {
  EXPECT_FALSE(coordinator.appMetadata() || coordinator.stream());
  std::promise<void> configured;
  coordinator.requestAppMetadata([&](auto) { configured.set_value(); });
  test::await(configured.get_future());
  ASSERT_TRUE(coordinator.appMetadata());
  EXPECT_GE(coordinator.appMetadata()->sectionMetadata().size(), 6U);

  const auto front = stream({});
  ASSERT_TRUE(front);
  EXPECT_EQ(coordinator.stream(), *front);
  misbehave("status=/stream:500");
  EXPECT_FALSE(stream({"never", "fetched"}));
  EXPECT_EQ(coordinator.stream(), *front);
}

TEST_F(DataCoordinatorTests, onlyAFreshArticleCountsAsFetched) {
  const URL url = firstArticle();
  dates.setLastRequestTime(1000);
  EXPECT_FALSE(*article(at("/config"))) << "no article";
  EXPECT_EQ(dates.lastRequestTime(), 1000);
  const auto fresh = article(url);
  ASSERT_TRUE(fresh && *fresh) << (*fresh).error().details();
  EXPECT_GT(dates.lastRequestTime(), 1'000'000);

  EXPECT_EQ(provenance.source, Provenance::Source::network);
  service->stop();
  // The copy takes the place of an answer on the manager's account, then on the server's.
  for (const char* directives : {"max-age=0", "max-age=0, stale-if-error=600"}) {
    auto copy = *cache->cachedResponse(URLRequest(url));
    copy.response.headers.set("Cache-Control", directives);
    cache->storeCachedResponse(copy, URLRequest(url));
    dates.setLastRequestTime(1000);
    const auto fallback = article(url);
    ASSERT_TRUE(fallback && *fallback);
    EXPECT_EQ((**fallback)->headline(), (**fresh)->headline());
    EXPECT_TRUE(provenance.fromCache);
    EXPECT_EQ(provenance.fetchedAt, copy.responseTime);
    EXPECT_EQ(dates.lastRequestTime(), 1000);
  }
}

TEST_F(DataCoordinatorTests, imagesAnswerOnTheMainQueue) {
  std::shared_ptr<const Image> image;
  int failures = 0;
  coordinator.requestImageFromURL(at("/images/harbour-640.jpg"),
                                  [&](auto decoded) { image = std::move(decoded); });
  ASSERT_TRUE(test::pumpUntil([&] { return image != nullptr; }));
  EXPECT_GT(image->width(), 0);
  coordinator.requestImageFromURL(
      at("/config"), [&](auto decoded) { image = std::move(decoded); },
      [&] {
        EXPECT_EQ(std::this_thread::get_id(), caller);
        ++failures;
      });
  EXPECT_TRUE(test::pumpUntil([&] { return failures == 1; }));
}

TEST_F(DataCoordinatorTests, offlineStreamIsAnsweredBeforeTheCallReturns) {
  std::shared_ptr<const StreamProtocol> offline;
  coordinator.requestOfflineStream([&](auto stream) { offline = std::move(stream); });
  ASSERT_TRUE(offline);
  EXPECT_EQ(offline->sections().size(), 3U);
  EXPECT_FALSE(offline->sponsoredArticles().empty());
  for (const auto& section : offline->sections()) {
    EXPECT_GE(section->articleHeaders().size(), 3U);
    for (const auto& card : section->articleHeaders()) EXPECT_TRUE(card->cardAsset());
  }
  EXPECT_EQ(coordinator.stream(), offline);
  EXPECT_TRUE(service->requests().empty());
}

TEST_F(DataCoordinatorTests, sharedCoordinatorFollowsEveryStreamThatIsParsed) {
  const auto front = stream({"news"});
  ASSERT_TRUE(front);
  const auto current = DataCoordinator::shared().appMetadata();
  ASSERT_TRUE(current);
  EXPECT_GT(current->sectionMetadata().size(), (*front)->appMetadata()->sectionMetadata().size());
}

class CacheWarmerTests : public DataCoordinatorTests {
 protected:
  CacheWarmerRequestResult warm(const URL& url, bool forceRefresh) {
    std::promise<CacheWarmerRequestResult> answered;
    const auto task = warmer->saveToCache(url, forceRefresh, [&](CacheWarmerRequestResult result) {
      answered.set_value(std::move(result));
    });
    asked = task != nullptr;
    auto future = answered.get_future();
    if (!asked) {
      EXPECT_EQ(future.wait_for(std::chrono::seconds(0)), std::future_status::ready);
    }
    return test::await(std::move(future));
  }

  bool asked = false;
  std::shared_ptr<CacheWarmerDataCoordinatorProtocol> warmer =
      coordinator.cacheWarmerDataCoordinator();
};

TEST_F(CacheWarmerTests, warmedPagesAreReadOfflineAndOnlyFetchesCountAsFresh) {
  const URL url = firstArticle();
  dates.setLastRequestTime(1000);
  EXPECT_TRUE(std::holds_alternative<cachewarmer::Success>(warm(url, false)));
  EXPECT_TRUE(asked);
  EXPECT_GT(dates.lastRequestTime(), 1'000'000);

  dates.setLastRequestTime(1000);
  const auto hit = warm(url, false);
  ASSERT_TRUE(std::holds_alternative<cachewarmer::SuccessFromCache>(hit));
  EXPECT_FALSE(std::get<cachewarmer::SuccessFromCache>(hit).data->empty());
  EXPECT_FALSE(asked);
  EXPECT_EQ(dates.lastRequestTime(), 1000);

  service->clearRequests();
  EXPECT_TRUE(std::holds_alternative<cachewarmer::Success>(warm(url, true)));
  EXPECT_TRUE(asked);
  EXPECT_EQ(service->requests().size(), 1U) << "a forced refresh asks the server";

  service->stop();
  const auto offline = article(url);
  EXPECT_TRUE(offline && *offline);
}

TEST_F(CacheWarmerTests, replacedWhileItWorksItLetsItsCallbacksUseTheCoordinator) {
  misbehave("silent=/config");
  std::promise<bool> cancelled;
  coordinator.cacheWarmerDataCoordinator()->saveToCache(
      at("/config"), false, [&](CacheWarmerRequestResult result) {
        cancelled.set_value(coordinator.baseURL() &&
                            std::holds_alternative<cachewarmer::NetworkError>(result));
      });
  warmer.reset();
  coordinator.setCacheWarmerDataCoordinator(nullptr);
  EXPECT_TRUE(test::await(cancelled.get_future()));
  EXPECT_TRUE(coordinator.cacheWarmerDataCoordinator());
}

TEST_F(CacheWarmerTests, pagesOfOneHostAreFetchedOverOneConnectionAtLowPriority) {
  test::ScriptedServer server([](const auto&) {
    auto script = test::answer("page");
    script.insert(script.begin(), test::wait(std::chrono::milliseconds(5)));
    return script;
  });
  std::atomic<int> left = 10;
  for (int i = 0; i < 10; ++i) {
    const auto task = warmer->saveToCache(server.url("/" + std::to_string(i)), false,
                                          [&](CacheWarmerRequestResult result) {
                                            EXPECT_EQ(result.index(), 0U);
                                            --left;
                                          });
    EXPECT_EQ(task->priority(), URLSessionTask::lowPriority);
  }
  EXPECT_TRUE(test::pumpUntil([&] { return left == 0; }));
  EXPECT_EQ(server.mostConnections(), 1);
}

TEST_F(CacheWarmerTests, callbacksMayBeLeftOut) {
  const URL config = at("/config");
  warmer->saveToCache(config, false, nullptr);
  manager->getJSONData<std::shared_ptr<const ArticleProtocol>>(
      config, std::make_shared<ArticleParser>(), nullptr);
  manager->postJSONData(config, Data(), nullptr);
  coordinator.requestAppMetadata(nullptr);
  coordinator.requestStreamForSections({}, nullptr);
  coordinator.requestOfflineStream(nullptr);
  coordinator.requestArticle(config, nullptr);
  coordinator.requestImageFromURL(config, nullptr);
  EXPECT_TRUE(test::pumpUntil([&] {
    return manager->taskCount() == 0 && coordinator.appMetadata() &&
           cache->cachedResponse(URLRequest(config));
  }));
  EXPECT_EQ(warmer->saveToCache(config, false, nullptr), nullptr);
}

TEST_F(CacheWarmerTests, failuresAreTellingAndLeaveTheTimeAlone) {
  dates.setLastRequestTime(1000);
  const auto missing = warm(at("/articles/none"), false);
  ASSERT_TRUE(std::holds_alternative<cachewarmer::FailedStatusCode>(missing));
  EXPECT_EQ(std::get<cachewarmer::FailedStatusCode>(missing).statusCode, 404);
  misbehave("status=/config:304");
  EXPECT_TRUE(std::holds_alternative<cachewarmer::Success>(warm(at("/config"), true)));
  dates.setLastRequestTime(1000);
  const URL url = at("/config");
  service->stop();
  EXPECT_TRUE(std::holds_alternative<cachewarmer::NetworkError>(warm(url, true)));
  EXPECT_EQ(dates.lastRequestTime(), 1000);
}

TEST(LatestDateStoreTests, timesInTheFutureAndUnusableValuesCountAsNone) {
  const test::TemporaryFolder folder;
  UserDefaults defaults(folder.path() / "defaults");
  const LatestDateStore first(defaults);
  EXPECT_GT(first.lastRequestTime(), 1e9);
  EXPECT_LT(first.timeElapsedSinceLastRequest(), 60);

  LatestDateStore again(defaults);
  again.setLastRequestTime(secondsSince1970(currentDate()) + 100);
  EXPECT_EQ(again.timeElapsedSinceLastRequest(), 0.0);
  EXPECT_EQ(UserDefaults(folder.path() / "defaults").doubleForKey("paperloom.lastRequestTime"),
            again.lastRequestTime());
  again.setLastRequestTime(secondsSince1970(currentDate()) - 100);
  EXPECT_GE(LatestDateStore(defaults).timeElapsedSinceLastRequest(), 99.0);
  defaults.setString("yesterday", "paperloom.lastRequestTime");
  EXPECT_GT(LatestDateStore(defaults).lastRequestTime(), 1e9);
}

TEST(LatestDateStoreTests, recordsByWayOfWhatASubclassReadsAndWrites) {
  struct Elsewhere final : LatestDateStore {
    using LatestDateStore::LatestDateStore;
    double lastRequestTime() const override { return time; }
    void setLastRequestTime(double to) override { time = to; }
    double time = 0;
  };
  const test::TemporaryFolder folder;
  UserDefaults defaults(folder.path() / "defaults");
  defaults.setDouble(5, "paperloom.lastRequestTime");
  Elsewhere store(defaults);
  store.recordRequestTimeIfUnset();
  EXPECT_GT(store.time, 1e9);
  EXPECT_EQ(defaults.doubleForKey("paperloom.lastRequestTime"), 5);
}

}  // namespace
}  // namespace paperloom
