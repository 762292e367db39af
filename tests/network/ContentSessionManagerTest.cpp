#include "paperloom/network/ContentSessionManager.h"

#include <gtest/gtest.h>

#include "paperloom/network/DataCoordinator.h"
#include "paperloom/network/MockSessionManager.h"
#include "paperloom/network/internal/OfflineResource.h"
#include "paperloom/network/internal/TaskCounter.h"
#include "paperloom/platform/NetworkActivityIndicator.h"
#include "paperloom/testing/Captured.h"
#include "paperloom/testing/ScriptedServer.h"
#include "tests/network/ContentFixture.h"

namespace paperloom::test {
namespace {

// Accepts JSON objects and hands back the bytes: enough of a parser to see which body was taken.
class BodyParser final : public ParserProtocol<std::string> {
 public:
  tl::expected<std::string, ParserError> parse(const Data& data) const override {
    const auto document = JSONDocument::parse(data.view());
    if (!document) return tl::unexpected(ParserError(document.error()));
    if (!document->object()) {
      return tl::unexpected(ParserError(PaperloomError::parsingFailed("no object")));
    }
    return std::string(data.view());
  }
};

struct Answer {
  Result<std::string> result;
  Provenance provenance;

  std::string text() const { return result ? *result : result.error().details(); }
};

class ContentSessionManagerTest : public ContentFixture {
 protected:
  using Parser = std::shared_ptr<const ParserProtocol<std::string>>;
  Answer get(ContentSessionManagerProtocol& from, const URL& url,
             Parser parser = std::make_shared<BodyParser>()) {
    return captured<Answer>(
        [&](auto done) { from.getDocument<std::string>(url, std::move(parser), done); });
  }

  ContentSessionManager manager{cache};
};

TEST_F(ContentSessionManagerTest, fallBackIsTheCopyStoredBeforeTheRequest) {
  ScriptedServer server([](const auto&) {
    auto script = test::answer("{}", "", "500 Internal Server Error");
    script.insert(script.begin(), test::awaitRelease());
    return script;
  });
  const URLRequest request(server.url());
  CachedURLResponse copy{HTTPURLResponse{request.url, 200, {{"Cache-Control", "max-age=0"}}},
                         Data(R"({"copy": 1})"),
                         {},
                         {}};
  cache->storeCachedResponse(copy, request);
  const auto [result, fromCache] = captured<std::pair<Result<std::string>, bool>>([&](auto done) {
    manager.getJSONData<std::string>(request.url, std::make_shared<BodyParser>(), done);
    EXPECT_TRUE(pumpUntil([&] { return !server.requests().empty(); }));
    copy.data = Data(R"({"copy": 2})");
    cache->storeCachedResponse(copy, request);
    server.release();
  });
  EXPECT_EQ(result, R"({"copy": 1})");
  EXPECT_TRUE(fromCache);
}

TEST_F(ContentSessionManagerTest, copiesOfAnswersThatVaryAreFoundAndWarmedWithTheDefaultFields) {
  auto server = std::make_unique<ScriptedServer>(
      test::answer("{}", "Cache-Control: max-age=0\r\nVary: Accept-Language\r\n"));
  const URL fetched = server->url("/fetched");
  const URL warmed = server->url("/warmed");
  const auto german = std::make_shared<ContentSessionManager>(
      URLSessionConfiguration{.urlCache = cache, .defaultHeaders = {{"Accept-Language", "de"}}});
  DataCoordinator coordinator(german, dates);
  ASSERT_TRUE(get(*german, fetched).result);
  captured<CacheWarmerRequestResult>([&](auto done) {
    coordinator.cacheWarmerDataCoordinator()->saveToCache(warmed, false, done);
  });
  server.reset();
  EXPECT_FALSE(manager.offlineCopy(warmed)) << "that of another language";
  for (const URL& url : {fetched, warmed}) {
    EXPECT_TRUE(german->offlineCopy(url));
    EXPECT_TRUE(get(*german, url).provenance.fromCache);
  }
}

TEST_F(ContentSessionManagerTest, storedPageThatNoParserTakesIsAskedAfterBeforeItIsUsedAgain) {
  ScriptedServer server([](const auto&) {
    return test::answer(R"({"good": 1})", "Expires: Tue, 31 Dec 2199 23:59:59 GMT\r\n");
  });
  const URL url = server.url();
  ASSERT_TRUE(get(manager, url).result);
  auto portal = cache->cachedResponse(URLRequest(url)).value();
  portal.data = Data("[]");
  cache->storeCachedResponse(portal, URLRequest(url));
  EXPECT_EQ(get(manager, url).text(), "no object");
  EXPECT_EQ(get(manager, url).text(), R"({"good": 1})");
}

TEST_F(ContentSessionManagerTest, staleAnswerIsRefreshedBehindWithoutAnotherParse) {
  ScriptedServer server([](const auto&) {
    return test::answer(R"({"new": 1})", "Cache-Control: max-age=600\r\nETag: \"2\"\r\n");
  });
  const URLRequest request(server.url());
  const HTTPHeaders fields{{"Cache-Control", "max-age=1, stale-while-revalidate=600"},
                           {"Age", "60"}};
  cache->storeCachedResponse({{request.url, 200, fields}, Data("{}"), currentDate(), currentDate()},
                             request);
  struct CountingParser final : ParserProtocol<std::string> {
    tl::expected<std::string, ParserError> parse(const Data& data) const override {
      ++*count;
      EXPECT_EQ(manager->taskCount(), 0) << "the count falls before a parser runs";
      return std::string(data.view());
    }
    std::atomic<int>* count = nullptr;
    ContentSessionManager* manager = nullptr;
  };
  std::atomic<int> count = 0;
  auto parser = std::make_shared<CountingParser>();
  parser->count = &count;
  parser->manager = &manager;
  EXPECT_EQ(get(manager, request.url, parser).text(), "{}");
  EXPECT_TRUE(
      pumpUntil([&] { return cache->cachedResponse(request)->data == Data(R"({"new": 1})"); }));
  EXPECT_EQ(count, 1);
  get(manager, server.url("/other"), parser);  // which comes whole from the network
  EXPECT_EQ(count, 2);
}

TEST_F(ContentSessionManagerTest, parserErrorsReachTheCallerInTheLibrarysOwnType) {
  MockSessionManager array(Data("[]"));
  EXPECT_EQ(get(array, at("/")).text(), "no object");
  MockSessionManager truncated(Data("{\"a\": "));
  const Answer decoder = get(truncated, at("/"));
  ASSERT_FALSE(decoder.result);
  EXPECT_EQ(decoder.result.error().which(), PaperloomError::Case::parsingFailed);
  EXPECT_EQ(decoder.text(), JSONDocument::parse("{\"a\": ").error().localizedDescription);
}

TEST_F(ContentSessionManagerTest, indicatorFollowsTheCountOnTheMainQueue) {
  auto& indicator = NetworkActivityIndicator::shared();
  DispatchQueue::main().runPending();
  misbehave("silent=/config");
  const URL config = at("/config");
  CacheWarmerSessionManager warmer(cache);
  int completed = 0;
  const auto complete = [&](const auto& counting) {
    EXPECT_EQ(counting.taskCount(), 0);
    DispatchQueue::main().async([&] { ++completed; });
  };
  const std::function<std::shared_ptr<URLSessionTask>()> starts[] = {
      [&] {
        return manager.getJSONData<std::string>(
            config, std::make_shared<BodyParser>(),
            [&](Result<std::string>, bool) { complete(manager); });
      },
      [&] {
        return manager.postJSONData(config, Data(), [&](PostRequestResult) { complete(manager); });
      },
      [&] {
        return warmer.saveToCache(config, false,
                                  [&](CacheWarmerRequestResult) { complete(warmer); });
      }};
  for (const auto& start : starts) {
    completed = 0;
    const auto task = start();
    EXPECT_EQ(manager.taskCount() + warmer.taskCount(), 1);
    EXPECT_FALSE(indicator.isVisible());
    DispatchQueue::main().runPending();
    EXPECT_TRUE(indicator.isVisible());
    task->cancel();
    EXPECT_TRUE(pumpUntil([&] { return completed == 1 && !indicator.isVisible(); }));
    EXPECT_EQ(manager.taskCount() + warmer.taskCount(), 0);
  }
}

TEST(ProgrammingErrorsDeathTest, stopTheProgramWithAMessage) {
  ::testing::FLAGS_gtest_death_test_style = "threadsafe";
  EXPECT_DEATH(MockSessionManager(Data()).postJSONData(*URL::parse("http://a"), Data(), {}),
               "postJSONData not yet implemented");
  EXPECT_DEATH(DataCoordinator(nullptr), "a data coordinator needs a session manager");
  EXPECT_DEATH(ContentSessionManager(nullptr), "a session manager needs a cache");
  EXPECT_DEATH(CacheWarmerDataCoordinator(nullptr), "a cache warmer needs a cache");
  EXPECT_DEATH(offlineResource("none"), "no JSON resource named none");
  EXPECT_DEATH(checkedSum(INT64_MAX, 1), "count of tasks");
  EXPECT_DEATH(checkedSum(INT64_MIN, -1), "count of tasks");
}

}  // namespace
}  // namespace paperloom::test
