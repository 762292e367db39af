#include "paperloom/network/DataCoordinator.h"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <optional>
#include <set>
#include <thread>

#include "paperloom/model/ArticleParser.h"
#include "paperloom/network/MockSessionManager.h"
#include "paperloom/platform/ImageDecoder.h"
#include "paperloom/platform/Subscription.h"
#include "paperloom/testing/Captured.h"
#include "paperloom/testing/MovableClock.h"
#include "paperloom/testing/ScriptedServer.h"
#include "tests/network/ContentFixture.h"

namespace paperloom::test {
namespace {

class DataCoordinatorTest : public ContentFixture {
 protected:
  void SetUp() override { coordinator.setBaseURL(at("")); }

  using Metadata = std::shared_ptr<const AppMetadataProtocol>;
  using Front = std::shared_ptr<const StreamProtocol>;

  // Answers come on the session's queue, and are kept before anybody hears of them.
  Result<Metadata> configuration() {
    return captured<Result<Metadata>>([&](auto done) {
      coordinator.requestAppMetadata(
          [&, done](const Metadata& metadata) {
            EXPECT_NE(std::this_thread::get_id(), caller);
            EXPECT_EQ(coordinator.appMetadata(), metadata);
            done(metadata);
          },
          [done](PaperloomError error) { done(tl::unexpected(std::move(error))); });
    });
  }
  Result<Front> stream(const std::vector<std::string>& sections) {
    return captured<Result<Front>>([&](auto done) {
      coordinator.requestStreamForSections(
          sections,
          [&, done](const Front& stream) {
            EXPECT_NE(std::this_thread::get_id(), caller);
            EXPECT_EQ(coordinator.stream(), stream);
            done(stream);
          },
          [done](PaperloomError error) { done(tl::unexpected(std::move(error))); });
    });
  }

  const std::thread::id caller = std::this_thread::get_id();
  std::shared_ptr<ContentSessionManager> manager = std::make_shared<ContentSessionManager>(cache);
  DataCoordinator coordinator{manager, dates};
};

TEST_F(DataCoordinatorTest, asksForTheSectionsBelowTheBaseURL) {
  const std::pair<std::string, std::vector<std::string>> table[] = {
      {"/", {"news", "sport"}}, {"?token=1", {"a b", "c&d"}}, {"/api/?x=y", {}}};
  const std::string targets[] = {"/stream?uids=news,sport", "/stream?uids=a%20b,c%26d",
                                 "/api/stream?uids="};
  for (std::size_t i = 0; i < std::size(table); ++i) {
    coordinator.setBaseURL(at(table[i].first));
    stream(table[i].second);
    EXPECT_EQ(service->requests().at(i).target, targets[i]);
  }
  coordinator.setBaseURL(at("/?token=1"));
  configuration();
  EXPECT_EQ(service->requests().at(3).target, "/config?token=1");
}

TEST_F(DataCoordinatorTest, withoutABaseURLFailsAtOnce) {
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

TEST_F(DataCoordinatorTest, keepsTheLastConfigurationAndStream) {
  EXPECT_FALSE(coordinator.appMetadata() || coordinator.stream() || coordinator.defaultSections());
  coordinator.setDefaultSections("news");
  EXPECT_EQ(coordinator.defaultSections(), "news");
  const auto metadata = configuration();
  ASSERT_TRUE(metadata);
  EXPECT_GE((*metadata)->sectionMetadata().size(), 6U);
  const auto front = stream({});
  ASSERT_TRUE(front);
  misbehave("status=/stream:500,status=/config:404");
  cache->removeAllCachedResponses();
  EXPECT_FALSE(stream({}) || configuration());
  EXPECT_EQ(coordinator.stream(), *front);
  EXPECT_EQ(coordinator.appMetadata(), *metadata);
}

TEST_F(DataCoordinatorTest, failuresTellAStatusACancellationAndAnOutageApart) {
  using Code = URLError::Code;
  struct Case {
    const char* faults;
    std::optional<int> status;
    std::optional<Code> code;
  };
  const URL url = at("/articles/none");
  for (const Case& c : {Case{"", 404, {}},
                        {"status=/articles:410", 410, {}},
                        {"status=/articles:500", 500, {}},
                        {"silent=/articles", {}, Code::cancelled},
                        {nullptr, {}, Code::cannotConnectToHost}}) {
    SCOPED_TRACE(c.faults != nullptr ? c.faults : "stopped");
    c.faults != nullptr ? misbehave(c.faults) : service->stop();
    std::optional<Provenance> failure;
    const auto task = coordinator.requestArticle(
        url, [](auto) {}, [&](PaperloomError, const Provenance& from) { failure = from; });
    if (c.code == Code::cancelled) task->cancel();
    ASSERT_TRUE(pumpUntil([&] { return failure.has_value(); }));
    EXPECT_EQ(failure->statusCode, c.status);
    EXPECT_EQ(failure->error ? std::optional(failure->error->code) : std::nullopt, c.code);
    EXPECT_EQ(task->response() ? std::optional(task->response()->statusCode) : std::nullopt,
              c.status);
    EXPECT_EQ(task->error().has_value(), c.code.has_value());
  }
}

// A host's own, which leaves it to the coordinator to start what it fetches.
struct UnstartedSessionManager final : ContentSessionManagerProtocol {
  std::shared_ptr<URLSessionTask> postJSONData(const URL&, Data,
                                               std::function<void(PostRequestResult)>) override {
    return nullptr;
  }
  std::shared_ptr<URLCache> contentSessionCache() const override { return nullptr; }
  std::shared_ptr<URLSessionTask> getData(const URL& url, ErasedParser, ErasedCompletion,
                                          Parsing) override {
    return tasks.emplace_back(session.dataTask(URLRequest(url), nullptr));
  }

  URLSession session{{}};
  std::vector<std::shared_ptr<URLSessionTask>> tasks;
};

TEST_F(DataCoordinatorTest, startsWhatASessionManagerLeavesToIt) {
  const auto unstarted = std::make_shared<UnstartedSessionManager>();
  DataCoordinator own(unstarted, dates);
  own.setBaseURL(at(""));
  own.requestAppMetadata(nullptr);
  own.requestStreamForSections({}, nullptr);
  ASSERT_EQ(unstarted->tasks.size(), 2U);
  for (const auto& task : unstarted->tasks) {
    EXPECT_NE(task->state(), URLSessionTask::State::suspended);
  }
}

TEST_F(DataCoordinatorTest, ownersThatHaveGoneHearNothingAndTheirTransfersEnd) {
  misbehave("silent=/");
  bool others = false;
  using Start = std::function<void(const Subscription&)>;
  const Start starts[] = {
      [&](const Subscription& owner) {
        coordinator.requestAppMetadata(owner([](auto) { FAIL(); }), owner([](auto) { FAIL(); }));
      },
      [&](const Subscription& owner) {
        coordinator.requestStreamForSections({}, owner([](auto) { FAIL(); }),
                                             owner([](auto, const Provenance&) { FAIL(); }));
      },
      [&](const Subscription& owner) {
        coordinator.requestArticle(at("/articles/a"), nullptr, owner([](auto) { FAIL(); }));
      },
      [&](const Subscription& owner) {
        coordinator.requestImageFromURL(at("/a.jpg"), owner([](auto) { FAIL(); }));
      },
      [&](const Subscription& owner) {  // somebody else waits
        coordinator.requestArticle(at("/articles/b"), owner([](auto) { FAIL(); }),
                                   [&](auto) { others = true; });
      }};
  std::optional<Subscription> owner(std::in_place);
  for (const Start& start : starts) start(*owner);
  EXPECT_EQ(manager->taskCount(), 5);
  owner.reset();
  EXPECT_TRUE(pumpUntil([&] { return manager->taskCount() == 1; }));
  const Subscription late;
  const Subscription gone = [] {
    Subscription ended;
    ended.cancel();
    return ended;
  }();
  starts[1](gone);
  EXPECT_TRUE(pumpUntil([&] { return manager->taskCount() == 1; }));
  EXPECT_FALSE(others);
  service->stop();
  EXPECT_TRUE(pumpUntil([&] { return others; }));
}

template <class Holder>
concept IsLookedIntoUnkept = requires(Holder holder) {
  std::move(holder)->sections();
};
static_assert(IsLookedIntoUnkept<std::shared_ptr<const StreamProtocol>>);
static_assert(!IsLookedIntoUnkept<Snapshot<StreamProtocol>>, "the loop would read freed memory");

TEST(SharedCoordinatorDeathTest, areConfiguredBeforeTheirFirstUseOrNotAtAll) {
  ::testing::FLAGS_gtest_death_test_style = "threadsafe";
  EXPECT_EXIT(
      {
        const auto first = std::make_shared<MockSessionManager>(Data());
        const auto second = std::make_shared<MockSessionManager>(Data());
        const bool early =
            DataCoordinator::configureShared(first) && DataCoordinator::configureShared(second);
        const bool taken = DataCoordinator::shared().sessionManager() == second;
        const bool late = DataCoordinator::configureShared(first);
        std::exit(early && taken && !late ? 7 : 1);
      },
      ::testing::ExitedWithCode(7), "");
}

TEST_F(DataCoordinatorTest, imagesAnswerOnTheMainQueue) {
  const struct {
    const char* path;
    std::optional<ImageSize> maximumSize;
    int width;
  } cases[] = {{"/images/harbour-640.jpg", std::nullopt, 640},
               {"/images/harbour-640.jpg", ImageSize{200, 200}, 200},
               {"/images/harbour-640.jpg", ImageSize{2'000, 2'000}, 640},
               {"/config", std::nullopt, 0},
               {"/config", ImageSize{200, 200}, 0}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.path + std::to_string(c.width));
    std::optional<int> received;
    const auto receive = [&](int width) {
      EXPECT_EQ(std::this_thread::get_id(), caller);
      received = width;
    };
    const auto success = [&](const auto& image) { receive(image->width()); };
    const auto failure = [&] { receive(0); };
    c.maximumSize ? coordinator.requestImageFromURL(at(c.path), *c.maximumSize, success, failure)
                  : coordinator.requestImageFromURL(at(c.path), success, failure);
    EXPECT_TRUE(pumpUntil([&] { return received.has_value(); }));
    EXPECT_EQ(received, c.width);
  }
}

class CountingDecoder final : public ImageDecoder {
 public:
  std::shared_ptr<const Image> decode(std::string_view bytes) const override {
    ++count;
    return StandardImageDecoder().decode(bytes);
  }

  mutable std::atomic<int> count = 0;
};

TEST_F(DataCoordinatorTest, aPictureThatIsShownAgainIsNotDecodedAgain) {
  constexpr std::int64_t picture = 640 * 640 * 4;  // with room for the file
  constexpr auto year = std::chrono::hours(24 * 365);
  MovableClock clock;
  const auto first = std::make_shared<CountingDecoder>();
  const auto second = std::make_shared<CountingDecoder>();
  ImageDecoder::setCurrent(first);
  const struct {
    const char* what;
    std::function<void()> before;
    const char* path;
    std::optional<ImageSize> maximumSize;
    int decoded;
    bool asks = false;  // the server
  } rows[] = {
      {"new", nullptr, "/images/harbour-640.jpg", std::nullopt, 1, true},
      {"again", nullptr, "/images/harbour-640.jpg", std::nullopt, 0},
      {"smaller", nullptr, "/images/harbour-640.jpg", ImageSize{90, 90}, 1},
      {"smaller again", nullptr, "/images/harbour-640.jpg", ImageSize{90, 90}, 0},
      {"another", nullptr, "/images/railway-640.jpg", std::nullopt, 1, true},
      {"the first once more", nullptr, "/images/harbour-640.jpg", std::nullopt, 0},
      {"past its freshness", [&] { clock.advance(year); }, "/images/harbour-640.jpg", std::nullopt,
       0, true},
      {"confirmed", nullptr, "/images/harbour-640.jpg", std::nullopt, 0},
      {"under pressure", [&] { coordinator.handleMemoryPressure(); }, "/images/harbour-640.jpg",
       std::nullopt, 1},
      {"one fits", [&] { coordinator.setImageMemoryCapacity(picture); }, "/images/harbour-640.jpg",
       std::nullopt, 0},
      {"in its place", nullptr, "/images/railway-640.jpg", std::nullopt, 1, true},
      {"the one that went", nullptr, "/images/harbour-640.jpg", std::nullopt, 1},
      {"other bytes", [&] { cache->removeAllCachedResponses(); }, "/images/harbour-640.jpg",
       std::nullopt, 1, true},
      {"another decoder", [&] { ImageDecoder::setCurrent(second); }, "/images/harbour-640.jpg",
       std::nullopt, 1},
      {"no room", [&] { coordinator.setImageMemoryCapacity(1); }, "/images/harbour-640.jpg",
       std::nullopt, 1},
      {"none kept", nullptr, "/images/harbour-640.jpg", std::nullopt, 1},
  };
  for (const auto& row : rows) {
    if (row.before) row.before();
    const int before = first->count + second->count;
    service->clearRequests();
    bool answered = false;
    const auto success = [&](const auto&) { answered = true; };
    row.maximumSize ? coordinator.requestImageFromURL(at(row.path), *row.maximumSize, success)
                    : coordinator.requestImageFromURL(at(row.path), success);
    EXPECT_TRUE(pumpUntil([&] { return answered; })) << row.what;
    EXPECT_EQ(first->count + second->count - before, row.decoded) << row.what;
    EXPECT_EQ(service->requests().size(), row.asks ? 1U : 0U) << row.what;
  }
  ImageDecoder::setCurrent(nullptr);
}

// Kept or not: what is under way is shared.
TEST_F(DataCoordinatorTest, equalRequestsUnderWayAreFetchedAndReadOnceAndAnsweredEach) {
  const auto decoder = std::make_shared<CountingDecoder>();
  ImageDecoder::setCurrent(decoder);
  coordinator.setImageMemoryCapacity(0);
  misbehave("latency=100");
  std::vector<std::shared_ptr<const void>> answers;
  const auto answered = [&](const auto& item) { answers.push_back(item); };
  const URL picture = at("/images/harbour-640.jpg");
  const URL story = at("/articles/eel-count");
  for (int i = 0; i < 20; ++i) coordinator.requestImageFromURL(picture, answered);
  for (int i = 0; i < 5; ++i) coordinator.requestImageFromURL(picture, {90, 90}, answered);
  for (int i = 0; i < 5; ++i) coordinator.requestArticle(story, answered);
  EXPECT_EQ(manager->taskCount(), 30);
  coordinator.requestImageFromURL(picture, answered)->cancel();
  EXPECT_TRUE(pumpUntil([&] { return answers.size() == 30; }));
  EXPECT_EQ(service->requests().size(), 2U);
  EXPECT_EQ(decoder->count, 2);
  EXPECT_EQ(std::set(answers.begin(), answers.end()).size(), 3U);
  EXPECT_EQ(manager->taskCount(), 0);
  ImageDecoder::setCurrent(nullptr);
}

TEST_F(DataCoordinatorTest, offlineStreamIsAnsweredBeforeTheCallReturns) {
  std::shared_ptr<const StreamProtocol> offline;
  coordinator.requestOfflineStream([&](auto stream, const Provenance& provenance) {
    offline = std::move(stream);
    EXPECT_EQ(provenance.source, Provenance::Source::library);
  });
  ASSERT_TRUE(offline);
  EXPECT_EQ(offline->sections().size(), 3U);
  EXPECT_FALSE(offline->sponsoredArticles().empty());
  for (const auto& section : offline->sections()) {
    EXPECT_GE(section->articleHeaders().size(), 3U);
    for (const auto& card : section->articleHeaders()) EXPECT_TRUE(card->cardAsset());
  }
  EXPECT_EQ(coordinator.stream(), offline);
  EXPECT_TRUE(coordinator.sessionManagerMock());
  EXPECT_TRUE(service->requests().empty());
}

TEST_F(DataCoordinatorTest, sharedCoordinatorFollowsEveryStreamThatIsParsed) {
  const auto front = stream({"news"});
  ASSERT_TRUE(front);
  const auto current = DataCoordinator::shared().appMetadata();
  ASSERT_TRUE(current);
  EXPECT_GT(current->sectionMetadata().size(), (*front)->appMetadata()->sectionMetadata().size());
}

class CacheWarmerTest : public DataCoordinatorTest {
 protected:
  std::shared_ptr<CacheWarmerDataCoordinatorProtocol> warmer =
      coordinator.cacheWarmerDataCoordinator();
};

TEST_F(CacheWarmerTest, replacedWhileItWorksItLetsItsCallbacksUseTheCoordinator) {
  misbehave("silent=/config");
  const bool cancelled = captured<bool>([&](auto done) {
    coordinator.cacheWarmerDataCoordinator()->saveToCache(
        at("/config"), false, [&, done](CacheWarmerRequestResult result) {
          done(coordinator.baseURL() && std::holds_alternative<cachewarmer::NetworkError>(result));
        });
    warmer.reset();
    coordinator.setCacheWarmerDataCoordinator(nullptr);
  });
  EXPECT_TRUE(cancelled);
  EXPECT_TRUE(coordinator.cacheWarmerDataCoordinator());
}

TEST_F(CacheWarmerTest, pagesOfOneHostAreFetchedOverOneConnectionAtLowPriority) {
  ScriptedServer server([](const auto&) {
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
  EXPECT_TRUE(pumpUntil([&] { return left == 0; }));
  EXPECT_EQ(server.mostConnections(), 1);
}

TEST_F(CacheWarmerTest, callbacksMayBeLeftOut) {
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
  EXPECT_TRUE(pumpUntil([&] {
    return manager->taskCount() == 0 && coordinator.appMetadata() &&
           cache->cachedResponse(URLRequest(config));
  }));
  EXPECT_EQ(warmer->saveToCache(config, false, nullptr), nullptr);
}

TEST(LatestDateStoreTest, timesInTheFutureAndUnusableValuesCountAsNone) {
  const TemporaryFolder folder;
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

TEST(LatestDateStoreTest, recordsByWayOfWhatASubclassReadsAndWrites) {
  struct Elsewhere final : LatestDateStore {
    using LatestDateStore::LatestDateStore;
    double lastRequestTime() const override { return time; }
    void setLastRequestTime(double to) override { time = to; }
    double time = 0;
  };
  const TemporaryFolder folder;
  UserDefaults defaults(folder.path() / "defaults");
  defaults.setDouble(5, "paperloom.lastRequestTime");
  Elsewhere store(defaults);
  store.recordRequestTimeIfUnset();
  EXPECT_GT(store.time, 1e9);
  EXPECT_EQ(defaults.doubleForKey("paperloom.lastRequestTime"), 5);
}

}  // namespace
}  // namespace paperloom::test
