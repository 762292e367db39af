#include <gtest/gtest.h>

#include <cstdlib>
#include <thread>

#include "paperloom/model/ArticleParser.h"
#include "paperloom/network/AuthSessionManager.h"
#include "paperloom/network/ContentSessionManager.h"
#include "paperloom/network/DataCoordinator.h"
#include "paperloom/network/ProvenanceWords.h"
#include "paperloom/platform/ApplicationDirectories.h"
#include "paperloom/platform/NetworkActivityIndicator.h"
#include "paperloom/testing/Captured.h"
#include "paperloom/testing/ScriptedServer.h"
#include "paperloom/testing/TemporaryFolder.h"
#include "tests/support/IdentityAnswers.h"

namespace paperloom::test {
namespace {

// Bodies: the articles "new" and "old", or a text that is none.
std::string bodyOf(const std::string& name) {
  return name == "[]" || name.empty() ? name : R"({"headline":")" + name + "\"}";
}
std::string nameOf(const std::optional<Data>& body) {
  if (!body) return "nothing";
  const std::string text(body->view());
  const auto end = text.find("\"}");
  return end == std::string::npos ? text : text.substr(13, end - 13);
}

// What is in the cache before a request, received an hour ago.
struct Copy {
  HTTPHeaders fields;
  std::string name = "old";
  int status = 200;
};
const HTTPHeaders lasting{{"Cache-Control", "max-age=100000"}};
const HTTPHeaders expired{{"Cache-Control", "max-age=0"}};
const HTTPHeaders tagged{{"Cache-Control", "max-age=0"}, {"ETag", "\"1\""}};
const HTTPHeaders lenient{{"Cache-Control", "max-age=0, stale-if-error=100000"}};
const std::optional<Copy> none;

Script say(std::string_view status, const std::string& name = "new",
           std::string_view fields = "Cache-Control: max-age=600\r\n") {
  return answer(bodyOf(name), fields, status);
}
const Script closed = {closeConnection()};
const Script cut = {send("HTTP/1.1 200 OK\r\nContent-Length: 999\r\n\r\n{"), closeConnection()};
const Script confirmed = say("304 Not Modified", "");
const Script unkept = say("200 OK", "new", "Cache-Control: no-store\r\n");

// A failure's text, without what the system says of it.
std::string textOf(const PaperloomError& error) {
  const std::string& details = error.details();
  const auto end = details.rfind(" : ");
  return end == std::string::npos || end + 3 == details.size() ? details
                                                               : details.substr(0, end + 3);
}

class DeliveryTest : public ::testing::Test {
 protected:
  // Makes what a row needs anew.
  void prepare(const std::optional<Copy>& stored, const Script& script) {
    coordinator.reset();
    manager.reset();
    server = std::make_unique<ScriptedServer>(script);
    cache = std::make_shared<URLCache>(8 << 20, 0, "");
    manager = std::make_shared<ContentSessionManager>(cache);
    coordinator = std::make_unique<DataCoordinator>(manager, dates);
    dates.setLastRequestTime(1000);
    if (!stored) return;
    const URL url = server->url();
    cache->storeCachedResponse(
        {{url, stored->status, stored->fields}, Data(bodyOf(stored->name)), then, then},
        URLRequest(url));
  }

  std::string kept() const {
    const auto copy = cache->cachedResponse(URLRequest(server->url()));
    return nameOf(copy ? std::optional(copy->data) : std::nullopt);
  }
  bool isRecorded() const { return dates.lastRequestTime() != 1000; }

  const Date then = currentDate() - std::chrono::hours(1);
  const std::thread::id caller = std::this_thread::get_id();
  TemporaryFolder folder;
  UserDefaults defaults{folder.path() / "defaults"};
  LatestDateStore dates{defaults};
  std::unique_ptr<ScriptedServer> server;
  std::shared_ptr<URLCache> cache;
  std::shared_ptr<ContentSessionManager> manager;
  std::unique_ptr<DataCoordinator> coordinator;
};

TEST_F(DeliveryTest, ofADocument) {
  using enum Provenance::Source;
  using Source = Provenance::Source;
  struct Row {
    const char* what;
    std::optional<Copy> stored;
    Script script;
    std::string result;
    Source source;
    bool fromCache;
    std::string kept;
    std::size_t requests = 1;
  };
  const std::string noArticle = "failed to parse top level object in JSON Article";
  std::vector<Row> rows = {
      {"fresh copy", Copy{lasting}, closed, "old", Source::cache, false, "old", 0},
      {"confirmed", Copy{tagged}, confirmed, "old", revalidated, false, "old"},
      {"unasked 304", none, confirmed, "decoder", network, false, "nothing"},
      {"not to be kept", none, unkept, "new", network, false, "nothing"},
      {"no body", Copy{expired}, say("200 OK", ""), "decoder", network, false, "old"},
      {"portal", Copy{expired}, say("200 OK", "[]"), noArticle, network, false, "old"},
      {"portal", none, say("200 OK", "[]"), noArticle, network, false, "nothing"},
      {"cut", Copy{expired}, cut, "no network error : ", network, false, "old"},
      {"gone", none, closed, "no network error : ", Source::cache, true, "nothing"},
      {"gone", Copy{expired}, closed, "old", Source::cache, true, "old"},
      {"gone, lenient", Copy{lenient}, closed, "old", stale, true, "old"},
      {"500, lenient", Copy{lenient}, say("500 Oops"), "old", stale, true, "old"},
      {"gone, unreadable", Copy{expired, "[]"}, closed, noArticle, Source::cache, true, "[]"},
      {"gone, error", Copy{expired, "old", 404}, closed, "no network error : ", Source::cache, true,
       "old"},
  };
  for (const char* status : {"200 OK", "226 Used", "399 Odd"}) {
    rows.push_back({status, none, say(status), "new", network, false, "new"});
    rows.push_back({status, Copy{tagged}, say(status), "new", network, false, "new"});
  }
  for (const char* status : {"400 Bad", "404 None", "410 Gone", "500 Oops", "599 Odd"}) {
    rows.push_back({status, none, say(status), "no network error", Source::cache, true, "nothing"});
    rows.push_back({status, Copy{expired}, say(status), "old", Source::cache, true, "old"});
  }
  for (const Row& row : rows) {
    SCOPED_TRACE(std::string(row.what) + (row.stored ? " with a copy" : ""));
    const bool hasArticle = row.result == "old" || row.result == "new";
    using Item = std::shared_ptr<const ArticleProtocol>;
    std::string result;
    const auto isExpected = [&](const Result<Item>& received) {
      result = received ? (*received)->headline() : textOf(received.error());
      if (row.result != "decoder") return result == row.result;
      return !received && received.error().which() == PaperloomError::Case::parsingFailed;
    };

    prepare(row.stored, row.script);
    const auto [received, from] = captured<std::pair<Result<Item>, Provenance>>(
        [&](auto done) {
          manager->getDocument<Item>(
              server->url(), std::make_shared<ArticleParser>(),
              [&, done](const Result<Item>& answer, const Provenance& source) {
                EXPECT_NE(std::this_thread::get_id(), caller);
                EXPECT_EQ(manager->taskCount(), 0);
                done(answer, source);
              });
        },
        row.what);
    EXPECT_TRUE(isExpected(received)) << result;
    EXPECT_EQ(from.source, row.source);
    EXPECT_EQ(from.fromCache, row.fromCache);
    const bool hasBrokenOff = row.script.back().kind == Step::Kind::close && row.requests > 0;
    EXPECT_EQ(from.error.has_value(), hasBrokenOff);
    if (const int status = std::atoi(row.what); status != 0) {
      EXPECT_EQ(from.statusCode, status);
    }
    EXPECT_EQ(this->cache->statistics().lookUps, 1);
    EXPECT_EQ(kept(), row.kept);
    if (row.kept == "old" && row.source != revalidated) {  // as it was
      const auto copy = this->cache->cachedResponse(URLRequest(server->url()));
      EXPECT_TRUE(copy && copy->response.headers == row.stored->fields);
    }
    EXPECT_EQ(server->requests().size(), row.requests);
    const bool isOld = row.source == Source::cache || row.source == stale;
    if (row.stored && row.stored->status == 200 && isOld) {
      EXPECT_EQ(from.fetchedAt, then);
      EXPECT_GE(from.age, std::chrono::minutes(59));
      EXPECT_LE(from.age, std::chrono::minutes(61));
    }

    prepare(row.stored, row.script);
    bool answered = false;
    coordinator->requestArticle(
        server->url(),
        [&](const Item& article) {
          EXPECT_EQ(std::this_thread::get_id(), caller);
          EXPECT_TRUE(isExpected(article)) << result;
          answered = true;
        },
        [&](const PaperloomError& error) {
          EXPECT_EQ(std::this_thread::get_id(), caller);
          EXPECT_TRUE(isExpected(tl::unexpected(error))) << result;
          answered = true;
        });
    EXPECT_FALSE(answered);
    ASSERT_TRUE(pumpUntil([&] { return answered; }));
    EXPECT_EQ(isRecorded(), hasArticle && !row.fromCache);
  }
}

// Each answer: its name, where it came from, "+" when another one follows.
TEST_F(DeliveryTest, ofARefresh) {
  const Refresh young = Refresh::ifOlderThan(std::chrono::hours(2));
  const Refresh old = Refresh::ifOlderThan(std::chrono::minutes(30));
  const Refresh both = Refresh::afterTheCopy();
  const HTTPHeaders strict{{"Cache-Control", "no-cache, must-revalidate"}, {"ETag", "\"1\""}};
  struct Row {
    Refresh refresh;
    std::optional<Copy> stored;
    Script script;
    std::string answers;
    std::size_t requests = 1;
    bool isRecorded = true;
  };
  const std::vector<Row> rows = {
      {young, Copy{strict}, closed, "old stale;", 0},
      {young, Copy{lasting}, closed, "old cache;", 0},
      {young, Copy{lasting, "old", 404}, say("200 OK"), "new network;"},
      {young, Copy{lasting, "[]"}, say("200 OK"), "new network;"},
      {young, Copy{lasting, "[]"}, closed, "failed from a copy;", 1, false},
      {young, none, say("200 OK"), "new network;"},
      {old, Copy{lasting}, say("200 OK"), "new network;"},
      {old, Copy{tagged}, confirmed, "old revalidated;"},
      {old, Copy{lasting}, say("500 Oops"), "old from a copy;", 1, false},
      {both, Copy{lasting}, say("200 OK"), "old cache+;new network;"},
      {both, Copy{tagged}, confirmed, "old stale+;old revalidated;"},
      {both, Copy{expired}, closed, "old stale+;old from a copy;", 1, false},
      {both, Copy{expired, "[]"}, say("200 OK"), "new network;"},
      {both, Copy{expired, "old", 404}, say("200 OK"), "new network;"},
      {both, none, say("200 OK"), "new network;"},
      {both, none, closed, "failed from a copy;", 1, false},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.answers);
    std::string answers;
    const auto tell = [&](const std::string& name, const Provenance& from) {
      EXPECT_EQ(std::this_thread::get_id(), caller);
      answers += name + " " + (from.fromCache ? "from a copy" : std::string(sourceName(from))) +
                 (from.isFollowed ? "+;" : ";");
    };
    prepare(row.stored, row.script);
    coordinator->requestArticle(
        server->url(), row.refresh,
        [&](const auto& article, const Provenance& from) { tell(article->headline(), from); },
        [&](const auto&, const Provenance& from) { tell("failed", from); });
    EXPECT_TRUE(pumpUntil([&] { return answers.ends_with(";") && !answers.ends_with("+;"); }));
    coordinator.reset();
    manager.reset();
    DispatchQueue::main().runPending();
    EXPECT_EQ(answers, row.answers);
    EXPECT_EQ(server->requests().size(), row.requests);
    EXPECT_EQ(isRecorded(), row.isRecorded);
  }
}

TEST_F(DeliveryTest, ofACopyEndsWithItsOwner) {
  prepare(Copy{expired}, {hang()});
  Subscription owner;
  coordinator->requestArticle(server->url(), Refresh::afterTheCopy(),
                              owner([](const auto&) { FAIL(); }),
                              owner([](const PaperloomError&) { FAIL(); }));
  owner.cancel();
  EXPECT_TRUE(pumpUntil([&] { return manager->taskCount() == 0; }));
}

TEST_F(DeliveryTest, ofWhatIsWarmed) {
  struct Row {
    const char* what;
    std::optional<Copy> stored;
    bool force;
    Script script;
    std::string result;
    std::string kept;
    bool recorded;
  };
  const Row rows[] = {
      {"nothing kept", none, false, say("200 OK"), "fetched new", "new", true},
      {"no article", none, false, say("200 OK", "[]"), "fetched []", "[]", true},
      {"not to be kept", none, false, unkept, "fetched new", "nothing", true},
      {"odd", none, false, say("399 Odd"), "fetched new", "new", true},
      {"kept", Copy{expired}, false, closed, "kept old", "old", false},
      {"kept error", Copy{lasting, "old", 404}, false, say("200 OK"), "fetched new", "new", true},
      {"forced", Copy{lasting}, true, say("200 OK"), "fetched new", "new", true},
      {"confirmed", Copy{tagged}, true, confirmed, "fetched old", "old", true},
      {"missing", none, false, say("404 None"), "status 404", "nothing", false},
      {"forced, missing", Copy{lasting}, true, say("404 None"), "status 404", "old", false},
      {"broken", none, true, say("500 Oops"), "status 500", "nothing", false},
      {"gone", none, false, closed, "network error", "nothing", false},
      {"forced, gone", Copy{lasting}, true, closed, "network error", "old", false},
      {"cut", none, false, cut, "fetched nothing", "nothing", true},
  };
  struct Text {
    std::string operator()(const cachewarmer::Success& fetched) const {
      return "fetched " + nameOf(fetched.data);
    }
    std::string operator()(const cachewarmer::SuccessFromCache& hit) const {
      return "kept " + nameOf(hit.data);
    }
    std::string operator()(cachewarmer::FailedStatusCode failed) const {
      return "status " + std::to_string(failed.statusCode);
    }
    std::string operator()(cachewarmer::NetworkError) const { return "network error"; }
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    prepare(row.stored, row.script);
    bool atOnce = false;
    std::shared_ptr<URLSessionTask> task;
    const auto result = captured<CacheWarmerRequestResult>(
        [&](auto done) {
          task = coordinator->cacheWarmerDataCoordinator()->saveToCache(
              server->url(), row.force, [&, done](const CacheWarmerRequestResult& received) {
                EXPECT_EQ(isRecorded(), row.recorded) << "before anybody hears";
                atOnce = std::this_thread::get_id() == caller;
                done(received);
              });
        },
        row.what);
    EXPECT_EQ(std::visit(Text(), result), row.result);
    EXPECT_EQ(cache->statistics().lookUps, 1);
    EXPECT_EQ(kept(), row.kept);
    EXPECT_EQ(atOnce, row.result.starts_with("kept"));
    EXPECT_EQ(task == nullptr, atOnce);
    EXPECT_EQ(server->requests().empty(), atOnce);
  }
}

TEST_F(DeliveryTest, ofAPost) {
  constexpr const char* mayBeKept = "Cache-Control: max-age=600\r\nContent-Location: #\r\n";
  const std::pair<Script, std::string> rows[] = {
      {say("200 OK", "new", mayBeKept), "200 new"},
      {say("201 Created", "", mayBeKept), "201 "},
      {say("409 Conflict", "new", mayBeKept), "409 new"},
      {say("500 Oops", "new", mayBeKept), "500 new"},
      {say("303 Elsewhere", "", "Location: http://127.0.0.1:1/\r\n"), "303 "},
      {closed, "Error: : "},
      {cut, "Error: : "},
  };
  for (const auto& [script, expected] : rows) {
    SCOPED_TRACE(expected);
    prepare(none, script);
    const auto result = captured<PostRequestResult>(
        [&](auto done) {
          manager->postJSONData(server->url(), Data("{}"),
                                [&, done](const PostRequestResult& received) {
                                  EXPECT_NE(std::this_thread::get_id(), caller);
                                  done(received);
                                });
        },
        expected);
    const auto* success = std::get_if<PostSuccess>(&result);
    EXPECT_EQ(success != nullptr
                  ? std::to_string(success->responseCode) + " " + nameOf(success->responseData)
                  : textOf(std::get<PaperloomError>(result)),
              expected);
    EXPECT_EQ(kept(), "nothing");
  }
  const auto sent = server->requests().at(0);
  EXPECT_EQ(sent.method + sent.field("Content-Type") + sent.field("Accept") + sent.body,
            "POSTapplication/jsonapplication/json{}");
}

TEST_F(DeliveryTest, ofTheIdentitySide) {
  struct Row {
    const char* what;
    Script script;
    Lines posted, got;             // what the completion heard, in order
    std::string kept = "nothing";  // of the answer to a GET; that to a POST never is
  };
  const std::string rejected =
      "parsing failed with error parsingFailed(details: \"failed to parse top level object in JSON "
      "Article\")";
  constexpr const char* mayBeKept = "Cache-Control: max-age=600\r\nContent-Location: #\r\n";
  std::vector<Row> rows = {
      {"200", say("200 OK", "new", mayBeKept), {"success"}, {"success"}, "new"},
      {"201", say("201 Created", "new", mayBeKept), {"success"}, {"status 201"}, "new"},
      {"202", say("202 Accepted", "new", mayBeKept), {"success"}, {"status 202"}, "new"},
      {"no body", say("200 OK", "", mayBeKept), {"no data was returned"}, {"success"}, ""},
      {"no article", say("200 OK", "[]", mayBeKept), {rejected}, {"success"}, "[]"},
      {"gone", closed, {"network"}, {"network"}},
      {"cut", cut, {"network", "no data was returned"}, {"network", "success"}},
  };
  for (const char* code : {"203", "204", "206", "304", "400", "401", "403", "409", "500", "504"}) {
    const std::string line = std::string("status ") + code;
    rows.push_back(
        {code, say(std::string(code) + " -", "", "Cache-Control: no-store\r\n"), {line}, {line}});
  }
  rows.push_back({"elsewhere",
                  say("303 -", "", "Location: http://127.0.0.1:1/\r\n"),
                  {"status 303"},
                  {"status 303"}});
  for (const Row& row : rows) {
    for (const bool posts : {true, false}) {
      SCOPED_TRACE(row.what + std::string(posts ? ", POST" : ", GET"));
      Script script = row.script;
      script.insert(script.begin(), awaitRelease());
      prepare(none, script);
      Answers heard;
      {
        AuthSessionManager account({.urlCache = cache});
        const auto hear = [&](const auto& result) {
          EXPECT_NE(std::this_thread::get_id(), caller);
          EXPECT_EQ(account.taskCount(), 0);
          EXPECT_FALSE(NetworkActivityIndicator::shared().isVisible());
          heard(result);
        };
        using Item = std::shared_ptr<const ArticleProtocol>;
        if (posts) {
          account.postJSONData<Item>(Data("body"), server->url(), std::make_shared<ArticleParser>(),
                                     hear);
        } else {
          account.getRequest(server->url(), {{"Accept", "a"}, {"X-More", "b"}}, hear);
        }
        EXPECT_EQ(account.taskCount(), 1);
        EXPECT_TRUE(NetworkActivityIndicator::shared().isVisible());
        server->release();
        heard.waitForFirst();
      }
      EXPECT_EQ(heard.take(), posts ? row.posted : row.got);
      EXPECT_EQ(kept(), posts ? "nothing" : row.kept);
      const auto sent = server->requests().at(0);
      EXPECT_EQ(sent.method + sent.field("Content-Type") + sent.field("Accept") + sent.body,
                posts ? "POSTapplication/jsonapplication/jsonbody" : "GETa");
    }
  }
}

TEST(DefaultsTest, areThoseThatReadersFeel) {
  const TemporaryFolder folder;
  ApplicationDirectories::setCachesDirectory(folder.path());
  const ContentSessionManager content;
  const AuthSessionManager account;
  const CacheWarmerSessionManager warmer(content.contentSessionCache());
  struct Row {
    const URLSession& session;
    std::string folder;
    std::int64_t memory, disk;
    int connections;
  };
  for (const Row& row : {Row{content.session(), "url-cache", 8'388'608, 104'857'600, 6},
                         Row{warmer.session(), "url-cache", 8'388'608, 104'857'600, 1},
                         Row{account.session(), "auth-url-cache", 10'485'760, 10'485'760, 6}}) {
    SCOPED_TRACE(row.folder);
    const URLSessionConfiguration& made = row.session.configuration();
    EXPECT_EQ(made.urlCache->diskFile(), folder.path() / row.folder / "cache.sqlite");
    EXPECT_EQ(made.urlCache->memoryCapacity(), row.memory);
    EXPECT_EQ(made.urlCache->diskCapacity(), row.disk);
    EXPECT_EQ(made.httpMaximumConnectionsPerHost, row.connections);
    EXPECT_EQ(made.timeoutIntervalForRequest, std::chrono::seconds(20));
    EXPECT_EQ(made.timeoutIntervalForResource, std::chrono::minutes(10));
    EXPECT_EQ(made.maximumBodySize, 33'554'432);
  }
  EXPECT_EQ(URLCache().memoryCapacity(), 4'194'304);
  EXPECT_EQ(URLCache().diskFile(), "");
  ApplicationDirectories::setCachesDirectory("");
}

}  // namespace
}  // namespace paperloom::test
