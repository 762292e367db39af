#include "paperloom/network/ContentSessionManager.h"

#include <gtest/gtest.h>

#include "paperloom/network/CacheWarmerSessionManager.h"
#include "paperloom/network/MockSessionManager.h"
#include "paperloom/network/internal/OfflineResource.h"
#include "paperloom/network/internal/TaskCounter.h"
#include "paperloom/platform/NetworkActivityIndicator.h"
#include "tests/network/ContentFixture.h"
#include "tests/support/ScriptedServer.h"

namespace paperloom {
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
  bool fromCache = false;
  Provenance provenance{};
};

class ContentSessionManagerTests : public test::ContentFixture {
 protected:
  Answer get(ContentSessionManagerProtocol& from, const URL& url) {
    std::promise<Answer> answered;
    from.getDocument<std::string>(
        url, std::make_shared<BodyParser>(),
        [&](Result<std::string> result, const Provenance& provenance) {
          answered.set_value({std::move(result), provenance.fromCache, provenance});
        });
    return test::await(answered.get_future());
  }

  PostRequestResult post(const URL& url) {
    std::promise<PostRequestResult> answered;
    manager.postJSONData(url, Data("{}"),
                         [&](PostRequestResult result) { answered.set_value(std::move(result)); });
    return test::await(answered.get_future());
  }

  ContentSessionManager manager{cache};
};

TEST_F(ContentSessionManagerTests, statusDecidesWhetherTheFreshOrTheStoredBodyIsParsed) {
  const URL config = at("/config");
  const Answer stored = get(manager, config);
  ASSERT_TRUE(stored.result && !stored.fromCache);

  const std::pair<int, bool> table[] = {{200, false}, {226, false}, {304, false}, {399, false},
                                        {400, true},  {404, true},  {500, true},  {599, true}};
  for (const auto& [status, fallsBack] : table) {
    SCOPED_TRACE(status);
    // A manager without a stored copy of its own path answers from the network each time.
    misbehave("status=/config:" + std::to_string(status));
    const auto emptyCache = std::make_shared<URLCache>();
    ContentSessionManager withoutCopy(emptyCache);
    const Answer bare = get(withoutCopy, config);
    EXPECT_EQ(bare.fromCache, fallsBack);
    if (fallsBack) {
      ASSERT_FALSE(bare.result);
      EXPECT_EQ(bare.result.error().details(), "no network error");
    }

    const auto copy = cache->cachedResponse(URLRequest(config));
    ASSERT_TRUE(copy);
    CachedURLResponse expired = *copy;
    expired.response.headers.set("Cache-Control", "max-age=0");
    emptyCache->storeCachedResponse(expired, URLRequest(config));
    const Answer withCopy = get(withoutCopy, config);
    EXPECT_EQ(withCopy.fromCache, fallsBack);
    ASSERT_TRUE(withCopy.result) << withCopy.result.error().details();
    if (fallsBack) {
      EXPECT_EQ(*withCopy.result, *stored.result);
    }
  }
}

TEST_F(ContentSessionManagerTests, storedDocumentIsReadWhenTheServiceIsGone) {
  const URL article = at("/config");
  const Answer online = get(manager, article);
  ASSERT_TRUE(online.result);
  const URL other = at("/stream?uids=");
  service->stop();

  const Answer unknown = get(manager, other);
  ASSERT_FALSE(unknown.result);
  EXPECT_TRUE(unknown.fromCache);
  EXPECT_EQ(unknown.result.error().which(), PaperloomError::Case::networkError);
  EXPECT_EQ(unknown.result.error().details().find("no network error : "), 0U);
  EXPECT_GT(unknown.result.error().details().size(), std::string("no network error : ").size());

  // The copy is made stale first, so that it is the manager's fall-back that answers.
  makeStale(article);
  ContentSessionManager afterRestart(openCache());
  for (ContentSessionManager* each : {&manager, &afterRestart}) {
    const Answer offline = get(*each, article);
    ASSERT_TRUE(offline.result) << offline.result.error().details();
    EXPECT_TRUE(offline.fromCache);
    EXPECT_EQ(*offline.result, *online.result);
  }
}

TEST_F(ContentSessionManagerTests, successCutShortHasNoBodyAndDoesNotFallBack) {
  const URL config = at("/config");
  ASSERT_TRUE(get(manager, config).result);
  auto copy = *cache->cachedResponse(URLRequest(config));
  copy.response.headers.set("Cache-Control", "max-age=0");
  copy.response.headers.remove("ETag");
  copy.response.headers.remove("Last-Modified");
  cache->storeCachedResponse(copy, URLRequest(config));

  misbehave("cut=/config:100");
  const Answer cut = get(manager, config);
  ASSERT_FALSE(cut.result);
  EXPECT_FALSE(cut.fromCache);
  EXPECT_EQ(cut.result.error().details().find("no network error : "), 0U);
}

TEST_F(ContentSessionManagerTests, fallBackIsTheCopyStoredBeforeTheRequest) {
  test::ScriptedServer server([](const auto&) {
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
  std::promise<Result<std::string>> answered;
  manager.getJSONData<std::string>(
      request.url, std::make_shared<BodyParser>(),
      [&](Result<std::string> result, bool) { answered.set_value(std::move(result)); });
  ASSERT_TRUE(test::pumpUntil([&] { return !server.requests().empty(); }));
  copy.data = Data(R"({"copy": 2})");
  cache->storeCachedResponse(copy, request);
  server.release();
  EXPECT_EQ(test::await(answered.get_future()), R"({"copy": 1})");
}

TEST_F(ContentSessionManagerTests, storedRedirectsLeadToTheStoredDocument) {
  auto server = std::make_unique<test::ScriptedServer>([](const auto& request) {
    if (request.target == "/new") return test::answer("{}", "Cache-Control: max-age=0\r\n");
    return test::answer("moved", "Cache-Control: max-age=600\r\nLocation: /new\r\n",
                        "301 Moved Permanently");
  });
  const URL moved = server->url("/old");
  const URL target = server->url("/new");
  ASSERT_TRUE(get(manager, moved).result);
  server.reset();

  auto document = *cache->cachedResponse(URLRequest(target));
  document.responseTime -= std::chrono::hours(1);
  cache->storeCachedResponse(document, URLRequest(target));
  const Answer offline = get(manager, moved);
  EXPECT_TRUE(offline.fromCache);
  EXPECT_EQ(offline.result, "{}");
  EXPECT_EQ(offline.provenance.fetchedAt, document.responseTime) << "not that of the redirect";
  cache->removeCachedResponse(URLRequest(target));
  EXPECT_EQ(get(manager, moved).result.error().which(), PaperloomError::Case::networkError);
}

TEST_F(ContentSessionManagerTests, goodCopySurvivesAnAnswerThatItsParserRefuses) {
  // What a captive portal does: 200, storable, and not the document.
  test::ScriptedServer server([](const auto& request) {
    return request.indexOnConnection == 1
               ? test::answer(R"({"good": 1})", "Cache-Control: max-age=0\r\n")
               : test::answer("[]", "Cache-Control: max-age=600\r\n");
  });
  ASSERT_TRUE(get(manager, server.url()).result);
  const Answer refused = get(manager, server.url());
  EXPECT_FALSE(refused.fromCache);
  EXPECT_EQ(refused.result.error().details(), "no object");
  EXPECT_EQ(cache->cachedResponse(URLRequest(server.url()))->data, Data(R"({"good": 1})"));
}

TEST_F(ContentSessionManagerTests, storedPageThatNoParserTakesIsAskedAfterBeforeItIsUsedAgain) {
  test::ScriptedServer server(
      [](const auto&) { return test::answer(R"({"good": 1})", "Cache-Control: max-age=600\r\n"); });
  const URL url = server.url();
  ASSERT_TRUE(get(manager, url).result);
  auto portal = *cache->cachedResponse(URLRequest(url));
  portal.data = Data("[]");
  cache->storeCachedResponse(portal, URLRequest(url));
  EXPECT_EQ(get(manager, url).result.error().details(), "no object");
  EXPECT_EQ(*get(manager, url).result, R"({"good": 1})");
}

TEST_F(ContentSessionManagerTests, staleAnswerIsRefreshedBehindWithoutAnotherParse) {
  test::ScriptedServer server([](const auto&) {
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
  std::promise<std::string> answered;
  manager.getJSONData<std::string>(
      request.url, parser, [&](Result<std::string> result, bool) { answered.set_value(*result); });
  EXPECT_EQ(test::await(answered.get_future()), "{}");
  EXPECT_TRUE(test::pumpUntil(
      [&] { return cache->cachedResponse(request)->data == Data(R"({"new": 1})"); }));
  EXPECT_EQ(count, 1);

  const URL other = server.url("/other");  // which comes whole from the network
  std::promise<void> parsed;
  manager.getJSONData<std::string>(other, parser,
                                   [&](Result<std::string>, bool) { parsed.set_value(); });
  test::await(parsed.get_future());
  EXPECT_EQ(count, 2);
}

TEST_F(ContentSessionManagerTests, parserErrorsReachTheCallerInTheLibrarysOwnType) {
  const Answer image = get(manager, at("/images/none.png"));
  EXPECT_EQ(image.result.error().details(), "no network error");

  MockSessionManager array(Data("[]"));
  EXPECT_EQ(get(array, at("/")).result.error().details(), "no object");
  MockSessionManager truncated(Data("{\"a\": "));
  const Answer decoder = get(truncated, at("/"));
  EXPECT_EQ(decoder.result.error().which(), PaperloomError::Case::parsingFailed);
  EXPECT_EQ(decoder.result.error().details(),
            JSONDocument::parse("{\"a\": ").error().localizedDescription);
}

TEST_F(ContentSessionManagerTests, postReportsEveryStatusAndEveryTransportFailure) {
  misbehave("status=/config:409");
  const auto conflict = std::get<PostSuccess>(post(at("/config")));
  EXPECT_EQ(conflict.responseCode, 409);
  EXPECT_FALSE(conflict.responseData.empty());
  const auto sent = service->requests().back();
  EXPECT_EQ(sent.method, "POST");
  EXPECT_EQ(sent.header("Content-Type"), "application/json");
  EXPECT_EQ(sent.header("Accept"), "application/json");
  EXPECT_EQ(sent.body, "{}");

  const URL gone = at("/config");
  service->stop();
  const auto failure = std::get<PaperloomError>(post(gone));
  EXPECT_EQ(failure.which(), PaperloomError::Case::networkError);
  EXPECT_EQ(failure.details().find("Error: : "), 0U);
}

TEST_F(ContentSessionManagerTests, indicatorFollowsTheCountOnTheMainQueue) {
  auto& indicator = NetworkActivityIndicator::shared();
  DispatchQueue::main().runPending();
  misbehave("silent=/config");
  const URL config = at("/config");
  CacheWarmerSessionManager warmer(cache);
  const std::function<std::shared_ptr<URLSessionTask>()> starts[] = {
      [&] {
        return manager.getJSONData<std::string>(
            config, std::make_shared<BodyParser>(),
            [&](Result<std::string>, bool) { EXPECT_EQ(manager.taskCount(), 0); });
      },
      [&] {
        return manager.postJSONData(config, Data(),
                                    [&](PostRequestResult) { EXPECT_EQ(manager.taskCount(), 0); });
      },
      [&] {
        return warmer.saveToCache(
            config, false, [&](CacheWarmerRequestResult) { EXPECT_EQ(warmer.taskCount(), 0); });
      }};
  for (const auto& start : starts) {
    const auto task = start();
    EXPECT_EQ(manager.taskCount() + warmer.taskCount(), 1);
    EXPECT_FALSE(indicator.isVisible());
    DispatchQueue::main().runPending();
    EXPECT_TRUE(indicator.isVisible());
    task->cancel();
    EXPECT_TRUE(test::pumpUntil([&] { return !indicator.isVisible(); }));
    EXPECT_EQ(manager.taskCount() + warmer.taskCount(), 0);
  }
}

TEST(ProgrammingErrorsDeathTests, stopTheProgramWithAMessage) {
  ::testing::FLAGS_gtest_death_test_style = "threadsafe";
  EXPECT_DEATH(MockSessionManager(Data()).postJSONData(*URL::parse("http://a"), Data(), {}),
               "postJSONData not yet implemented");
  EXPECT_DEATH(offlineResource("none"), "no JSON resource named none");
  EXPECT_DEATH(checkedSum(INT64_MAX, 1), "count of tasks");
  EXPECT_DEATH(checkedSum(INT64_MIN, -1), "count of tasks");
}

}  // namespace
}  // namespace paperloom
