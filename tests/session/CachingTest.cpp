#include <gtest/gtest.h>

#include <atomic>

#include "paperloom/testing/Fetch.h"
#include "paperloom/testing/ScriptedServer.h"

namespace paperloom::test {
namespace {

using Code = URLError::Code;
using Request = ScriptedServer::Request;
using Source = URLSessionTaskMetrics::Source;

// A session with a cache in memory. What lies about is made stale by its Age field.
class CachingTest : public ::testing::Test {
 protected:
  void keep(const URL& url, HTTPHeaders fields, std::string body, int status = 200) {
    const Date now = currentDate();
    cache_->storeCachedResponse({{url, status, std::move(fields)}, Data(std::move(body)), now, now},
                                URLRequest(url));
  }
  std::string kept(const URL& url) const {
    const auto stored = cache_->cachedResponse(URLRequest(url));
    return stored ? std::string(stored->data.view()) : "nothing";
  }

  std::shared_ptr<URLCache> cache_ = std::make_shared<URLCache>(8 << 20, 0, "");
  URLSession session_{{.urlCache = cache_}};
};

const char* const fresh = "Cache-Control: max-age=1000\r\n";
const HTTPHeaders staleWithTag{{"Cache-Control", "max-age=10"}, {"Age", "60"}, {"ETag", "\"1\""}};

TEST_F(CachingTest, aFreshCopyIsServedWithItsAgeAndWithoutTraffic) {
  ScriptedServer server(answer("body", fresh));
  const Answer first = fetch(session_, URLRequest(server.url()));
  EXPECT_EQ(first.metrics.source, Source::network);
  EXPECT_EQ(kept(server.url()), "body");
  const Answer second = fetch(session_, URLRequest(server.url("/#part")));
  EXPECT_EQ(second.body(), "body");
  EXPECT_EQ(second.response->url, server.url("/#part"));
  EXPECT_EQ(second.metrics.source, Source::cache);
  EXPECT_EQ(second.metrics.countOfBytesReceived, 0);
  EXPECT_TRUE(second.metrics.age && second.metrics.fetchedAt);
  EXPECT_TRUE(second.response->headers.contains("Age"));
  URLRequest part(server.url());
  part.headers.add("Range", "bytes=1-2");
  const Answer range = fetch(session_, part);
  EXPECT_EQ(range.status(), 206);
  EXPECT_EQ(range.body(), "od");
  URLRequest head(server.url());
  head.method = "HEAD";
  EXPECT_EQ(fetch(session_, head).body(), "");
  EXPECT_EQ(server.requests().size(), 1U);
}

TEST_F(CachingTest, everyHopIsLookedUpOnceAndLeavesItsCopyWithTheTask) {
  ScriptedServer server([](const Request& request) -> Script {
    if (request.target == "/moved") return answer("", "Location: /fresh\r\n", "302 Found");
    if (request.target == "/turns") return answer("", "Location: /other\r\n", "302 Found");
    if (request.target == "/gone") return {resetConnection()};
    if (!request.field("If-None-Match").empty()) return answer("", "", "304 Not Modified");
    return answer("new", "Cache-Control: no-store\r\n");
  });
  const HTTPHeaders stale = staleWithTag;
  const HTTPHeaders lasting{{"Cache-Control", "max-age=1000"}};
  const auto leadingTo = [](const char* target, HTTPHeaders fields) {
    fields.add("Location", target);
    return fields;
  };
  keep(server.url("/fresh"), lasting, "fresh");
  keep(server.url("/stale"), stale, "stale");
  keep(server.url("/gone"), leadingTo("/stale", stale), "", 301);
  keep(server.url("/leads"), leadingTo("/leads-on", lasting), "", 301);
  keep(server.url("/leads-on"), leadingTo("/fresh", lasting), "", 301);
  keep(server.url("/turns"), leadingTo("/fresh", stale), "", 302);
  keep(server.url("/other"), lasting, "other");
  struct Row {
    const char* target;
    int lookUps;
    const char* body;
    const char* copy = "none";
    const char* method = "GET";
    URLRequestCachePolicy policy = URLRequestCachePolicy::useProtocolCachePolicy;
  };
  const Row rows[] = {
      {"/miss", 1, "new"},
      {"/fresh", 1, "fresh", "fresh"},
      {"/stale", 1, "stale", "stale"},
      {"/moved", 2, "fresh"},
      {"/leads", 3, "fresh", "fresh"},
      {"/gone", 2, "no data", "stale"},
      {"/turns", 3, "other", "fresh"},
      {"/fresh", 0, "new", "none", "POST"},
      {"/stale", 0, "new", "none", "GET", URLRequestCachePolicy::reloadIgnoringLocalCacheData},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(std::string(row.method) + " " + row.target);
    URLRequest request(server.url(row.target));
    request.method = row.method;
    request.cachePolicy = row.policy;
    const std::int64_t before = cache_->statistics().lookUps;
    Pending pending = start(session_, request);
    EXPECT_EQ(pending.get().body(), row.body);
    EXPECT_EQ(cache_->statistics().lookUps - before, row.lookUps);
    const auto copy = pending.task->storedResponse();
    EXPECT_EQ(copy ? std::string(copy->data.view()) : "none", row.copy);
  }
  // Waiting for a connection is no reason to look again, and what was never resumed has no hop.
  const std::int64_t before = cache_->statistics().lookUps;
  std::vector<Pending> many;
  for (int i = 0; i < 20; ++i) many.push_back(start(session_, URLRequest(server.url("/miss"))));
  Pending cancelled = prepare(session_, URLRequest(server.url("/fresh")));
  cancelled.task->cancel();
  EXPECT_EQ(cancelled.get().code(), Code::cancelled);
  for (Pending& one : many) EXPECT_EQ(one.get().body(), "new");
  EXPECT_EQ(cache_->statistics().lookUps - before, 20);
}

TEST_F(CachingTest, onlyWholeAnswersAreKeptAndOnlyDecodedOnes) {
  const std::string fields = fresh;
  const auto open = [&](std::string_view body) {
    return Script{send("HTTP/1.1 200 OK\r\n" + fields + "\r\n" + std::string(body)),
                  closeConnection()};
  };
  struct Case {
    const char* what;
    Script script;
    const char* kept;
    const char* codings = "";
  };
  const Case cases[] = {
      {"whole", answer("body", fields), "body"},
      {"cut",
       {send("HTTP/1.1 200 OK\r\n" + fields + "Content-Length: 9\r\n\r\nbody"), closeConnection()},
       "nothing"},
      {"without a length", open("body"), "nothing"},
      {"a coding of the caller's", answer("body", fields + "Content-Encoding: zstd\r\n"), "nothing",
       "zstd"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    ScriptedServer server(c.script);
    URLRequest request(server.url());
    cache_->removeAllCachedResponses();
    if (*c.codings != '\0') request.headers.add("Accept-Encoding", c.codings);
    fetch(session_, request);
    EXPECT_EQ(kept(server.url()), c.kept);
  }
}

TEST_F(CachingTest, aStaleCopyIsConfirmedOrReplaced) {
  std::atomic<bool> changed = false;
  ScriptedServer server([&](const Request& request) {
    if (changed || request.field("If-None-Match") != "\"1\"") {
      return answer("new", std::string(fresh) + "ETag: \"2\"\r\n");
    }
    return answer("", "Cache-Control: max-age=0\r\nX-New: yes\r\nContent-Encoding: gzip\r\n",
                  "304 Not Modified");
  });
  keep(server.url(), staleWithTag, "old");
  const Answer confirmed = fetch(session_, URLRequest(server.url()));
  EXPECT_EQ(confirmed.status(), 200);
  EXPECT_EQ(confirmed.body(), "old");
  EXPECT_EQ(confirmed.metrics.source, Source::revalidated);
  const auto stored = cache_->cachedResponse(URLRequest(server.url()));
  ASSERT_TRUE(stored);
  EXPECT_EQ(stored->response.headers.first("X-New"), "yes");
  EXPECT_FALSE(stored->response.headers.contains("Content-Encoding"));
  changed = true;
  const Answer replaced = fetch(session_, URLRequest(server.url()));
  EXPECT_EQ(replaced.body(), "new");
  EXPECT_EQ(replaced.metrics.source, Source::network);
  EXPECT_EQ(kept(server.url()), "new");
}

TEST_F(CachingTest, aConfirmationOfAnotherAnswerIsAskedAgainWithoutConditions) {
  ScriptedServer server([](const Request& request) {
    return request.field("If-None-Match").empty()
               ? answer("new", std::string(fresh) + "ETag: \"2\"\r\n")
               : answer("", std::string(fresh) + "ETag: \"2\"\r\n", "304 Not Modified");
  });
  keep(server.url(), staleWithTag, "old");
  const Answer received = fetch(session_, URLRequest(server.url()));
  EXPECT_EQ(received.body(), "new");
  EXPECT_EQ(received.metrics.source, Source::network);
  EXPECT_EQ(kept(server.url()), "new");
  EXPECT_EQ(server.requests().size(), 2U);
}

TEST_F(CachingTest, theCallersOwnConditionsGetTheirOwnAnswer) {
  ScriptedServer server({send("HTTP/1.1 304 Not Modified\r\nETag: \"9\"\r\n\r\n")});
  URLRequest request(server.url());
  request.headers.add("If-None-Match", "\"9\"");
  EXPECT_EQ(fetch(session_, request).status(), 304);
  keep(server.url(), staleWithTag, "old");
  const Answer received = fetch(session_, request);
  EXPECT_EQ(received.status(), 304);
  EXPECT_EQ(received.body(), "");
  EXPECT_EQ(server.requests().back().field("If-None-Match"), "\"9\"");
  EXPECT_EQ(kept(server.url()), "old");
}

TEST_F(CachingTest, thePolicyAndTheDirectivesOfTheRequestDecide) {
  struct Case {
    URLRequestCachePolicy policy;
    const char* directive;
    bool stored;
    int status;
    const char* body;
    std::optional<Code> error = {};
  };
  using Policy = URLRequestCachePolicy;
  const Case cases[] = {
      {Policy::useProtocolCachePolicy, "", true, 200, "sent"},
      {Policy::useProtocolCachePolicy, "max-stale", true, 200, "old"},
      {Policy::useProtocolCachePolicy, "only-if-cached", true, 504, ""},
      {Policy::reloadIgnoringLocalCacheData, "max-stale", true, 200, "sent"},
      {Policy::returnCacheDataElseLoad, "", true, 200, "old"},
      {Policy::returnCacheDataElseLoad, "", false, 200, "sent"},
      {Policy::returnCacheDataDontLoad, "", true, 200, "old"},
      {Policy::returnCacheDataDontLoad, "", false, 0, "no data", Code::resourceUnavailable},
      {Policy::reloadRevalidatingCacheData, "max-stale", true, 200, "sent"},
      {Policy::reloadRevalidatingCacheData, "", false, 200, "sent"},
  };
  ScriptedServer server(answer("sent", "Cache-Control: no-store\r\n"));
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(c.directive) + " " + std::to_string(static_cast<int>(c.policy)));
    cache_->removeAllCachedResponses();
    if (c.stored) keep(server.url(), staleWithTag, "old");
    URLRequest request(server.url());
    request.cachePolicy = c.policy;
    if (*c.directive != '\0') request.headers.add("Cache-Control", c.directive);
    const Answer received = fetch(session_, request);
    EXPECT_EQ(received.status(), c.status);
    EXPECT_EQ(received.body(), c.body);
    EXPECT_EQ(received.code(), c.error);
    const bool old = received.body() == "old";
    EXPECT_EQ(received.metrics.source == Source::stale, old);
  }
}

TEST_F(CachingTest, aStaleCopyStandsInForAFailureOnlyWhereTheDirectivesAllowIt) {
  const Script failures[] = {
      answer("oops", "", "503 Unavailable"),
      {closeConnection()},
      {send("HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\ncut"), closeConnection()}};
  for (const Script& failure : failures) {
    for (const bool allowed : {true, false}) {
      ScriptedServer server(failure);
      keep(server.url(),
           {{"Cache-Control", allowed ? "max-age=10, stale-if-error=600" : "max-age=10"},
            {"Age", "60"}},
           "old");
      const Answer received = fetch(session_, URLRequest(server.url()));
      EXPECT_EQ(received.body() == "old", allowed);
      EXPECT_EQ(received.metrics.source, allowed ? Source::stale : Source::network);
      EXPECT_EQ(kept(server.url()), "old");
    }
  }
}

TEST_F(CachingTest, staleWhileRevalidateServesNowAndRefreshesBehind) {
  ScriptedServer server([](const Request& request) {
    return answer("new of " + request.field("If-None-Match"), fresh);
  });
  keep(server.url(),
       {{"Cache-Control", "max-age=10, stale-while-revalidate=600"},
        {"Age", "60"},
        {"ETag", "\"1\""}},
       "old");
  std::atomic<int> asked = 0;
  const auto filter = [&](const HTTPURLResponse&, const Data&) { return ++asked > 0; };
  const Answer received =
      start(session_, URLRequest(server.url()), URLSessionTask::defaultPriority, filter).get();
  EXPECT_EQ(received.body(), "old");
  EXPECT_EQ(received.metrics.source, Source::stale);
  EXPECT_TRUE(pumpUntil([&] { return kept(server.url()) != "old"; }));
  EXPECT_EQ(kept(server.url()), "new of \"1\"");
  EXPECT_EQ(asked, 1);
}

TEST_F(CachingTest, theStoreFilterKeepsAGoodCopyFromABadAnswer) {
  std::atomic<int> status = 304;
  ScriptedServer server([&](const Request&) {
    return status == 304 ? answer("", "", "304 Not Modified") : answer("<html>", fresh);
  });
  keep(server.url(), staleWithTag, "good");
  int asked = 0;
  bool accept = false;
  const auto get = [&] {
    return start(session_, URLRequest(server.url()), URLSessionTask::defaultPriority,
                 [&](const HTTPURLResponse& response, const Data& data) {
                   ++asked;
                   EXPECT_EQ(response.statusCode, 200);
                   EXPECT_EQ(data.view(), "<html>");
                   return accept;
                 })
        .get();
  };
  EXPECT_EQ(get().body(), "good");  // confirmed: nothing to ask
  EXPECT_EQ(asked, 0);
  keep(server.url(), staleWithTag, "good");
  status = 200;
  EXPECT_EQ(get().body(), "<html>");
  EXPECT_EQ(kept(server.url()), "good");
  accept = true;
  get();
  EXPECT_EQ(kept(server.url()), "<html>");
  EXPECT_EQ(asked, 2);
  cache_->removeAllCachedResponses();
  accept = false;
  get();
  EXPECT_EQ(kept(server.url()), "nothing");
}

TEST_F(CachingTest, anUnsafeRequestThatSucceedsInvalidatesWhatIsStored) {
  ScriptedServer server([](const Request& request) {
    if (request.target == "/fails") return answer("", "", "500 Oops");
    return answer("", "Location: /made\r\n", "201 Created");
  });
  for (const char* target : {"/", "/made", "/fails"}) {
    keep(server.url(target), {{"Cache-Control", "max-age=1000"}}, "old");
  }
  for (const char* target : {"/", "/fails"}) {
    URLRequest post(server.url(target));
    post.method = "POST";
    fetch(session_, post);
  }
  EXPECT_EQ(kept(server.url()), "nothing");
  EXPECT_EQ(kept(server.url("/made")), "nothing");
  EXPECT_EQ(kept(server.url("/fails")), "old");
}

TEST_F(CachingTest, redirectsAreKeptByTheirOwnRulesAndALoopOfThemEndsWithoutTraffic) {
  ScriptedServer server([](const Request& request) {
    if (request.target == "/moved") {
      return answer("", "Location: /target\r\nCache-Control: max-age=1000\r\n", "301 Moved");
    }
    return answer("target", "Cache-Control: no-store\r\n");
  });
  const auto reject = [](const HTTPURLResponse&, const Data&) { return false; };
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(start(session_, URLRequest(server.url("/moved")), 0.5F, reject).get().body(),
              "target");
  }
  EXPECT_EQ(server.requests().size(), 3U);

  keep(server.url("/a"), {{"Cache-Control", "max-age=1000"}, {"Location", "/b"}}, "", 301);
  keep(server.url("/b"), {{"Cache-Control", "max-age=1000"}, {"Location", "/a"}}, "", 301);
  EXPECT_EQ(fetch(session_, URLRequest(server.url("/a"))).code(), Code::httpTooManyRedirects);
  EXPECT_EQ(server.requests().size(), 3U);
}

}  // namespace
}  // namespace paperloom::test
