#include "paperloom/network/internal/OfflineCopy.h"

#include <gtest/gtest.h>

#include "paperloom/network/CacheWarmerSessionManager.h"
#include "paperloom/testing/Captured.h"
#include "paperloom/testing/ScriptedServer.h"
#include "tests/network/ContentFixture.h"

namespace paperloom::test {
namespace {

constexpr const char* page = "text/html; charset=utf-8";
constexpr const char* json = "application/json";
constexpr const char* untyped = "";

class OfflineCopyTest : public ContentFixture {
 protected:
  CacheWarmerRequestResult warm(const URL& url, bool force) {
    return captured<CacheWarmerRequestResult>(
        [&](auto done) { asked = warmer.saveToCache(url, force, done) != nullptr; });
  }

  // What is read when the network is gone.
  std::string offline(const URL& url) {
    const auto copy = offlineCopy(*cache, URLRequest(url));
    return copy ? std::string(copy->data.view()) : "nothing";
  }

  // What a host reads, when the network is gone.
  std::string read(const URL& url) {
    struct Echo final : ParserProtocol<std::string> {
      tl::expected<std::string, ParserError> parse(const Data& data) const override {
        return std::string(data.view());
      }
    };
    return captured<std::string>([&](auto done) {
      manager.getDocument<std::string>(
          url, std::make_shared<Echo>(),
          [&, done](const Result<std::string>& result, const Provenance& provenance) {
            // Not that of a redirect to it.
            EXPECT_TRUE(!result || provenance.fetchedAt == then);
            done(result ? *result : "nothing");
          });
    });
  }

  const Date then = currentDate() - std::chrono::hours(1);
  bool asked = false;
  ContentSessionManager manager{cache};
  CacheWarmerSessionManager warmer{cache};
};

TEST_F(OfflineCopyTest, isAnAnswerOfGoodStatusWhateverItsFreshnessByWayOfStoredRedirects) {
  const std::string root = "http://127.0.0.1:1";  // nobody answers there
  struct Stored {
    int status;
    HTTPHeaders fields;
  };
  const std::pair<std::string, Stored> stored[] = {
      {"/200", {200, {}}},
      {"/399", {399, {{"Cache-Control", "max-age=0"}}}},
      {"/400", {400, {{"Cache-Control", "max-age=600"}}}},
      {"/404", {404, {{"Cache-Control", "max-age=600"}}}},
      {"/500", {500, {{"Cache-Control", "max-age=600"}}}},
      {"/star", {200, {{"Vary", "*"}}}},
      {"/moved", {301, {{"Location", "/star"}}}},
      {"/moved-twice", {302, {{"Location", "/moved"}}}},
      {"/moved-nowhere", {301, {{"Location", "/none"}}}},
      {"/moved-to-404", {308, {{"Location", "/404"}}}},
      {"/moved-in-circles", {307, {{"Location", "/moved-in-circles"}}}},
      {"/moved-without-saying-where", {301, {}}},
  };
  for (const auto& [path, answer] : stored) {
    const URL url = *URL::parse(root + path);
    const Date time = answer.fields.contains("Location") ? Date() : then;
    cache->storeCachedResponse({{url, answer.status, answer.fields}, Data(path), time, time},
                               URLRequest(url));
  }
  const std::pair<std::string, std::string> copies[] = {
      {"/none", "nothing"},
      {"/200", "/200"},
      {"/399", "/399"},
      {"/400", "nothing"},
      {"/404", "nothing"},
      {"/500", "nothing"},
      {"/star", "/star"},
      {"/moved", "/star"},
      {"/moved-twice", "/star"},
      {"/moved-nowhere", "nothing"},
      {"/moved-to-404", "nothing"},
      {"/moved-in-circles", "nothing"},
      {"/moved-without-saying-where", "/moved-without-saying-where"},
  };
  const auto reopened = openCache();
  for (const auto& [path, body] : copies) {
    SCOPED_TRACE(path);
    const URL url = *URL::parse(root + path);
    EXPECT_EQ(offline(url), body);
    EXPECT_EQ(read(url), body);
    EXPECT_EQ(offlineCopy(*reopened, URLRequest(url)).has_value(), body != "nothing");
    warm(url, false);
    EXPECT_EQ(asked, body == "nothing");
  }
}

TEST_F(OfflineCopyTest, isReplacedByAForcedRefreshOnlyWithWhatMayStandInItsPlace) {
  struct Case {
    const char* type;
    const char* status;
    const char* newType;
    bool replaced;
    const char* more = "";  // fields of the new answer
  };
  for (const Case& c : {Case{json, "200 OK", json, true},
                        {json, "200 OK", page, false},
                        {json, "200 OK", "TEXT/HTML ;a=b", false},
                        {json, "200 OK", "text/json", true},
                        {json, "200 OK", untyped, true},
                        {untyped, "200 OK", json, true},
                        {untyped, "200 OK", page, false},
                        {page, "200 OK", page, true},
                        {page, "200 OK", "application/xhtml+xml", true},
                        {"image/jpeg", "200 OK", "image/webp", true},
                        {json, "200 OK", json, false, "Content-Encoding: br\r\n"},
                        {json, "404 Not Found", json, false},
                        {json, "410 Gone", json, false},
                        {json, "500 Oops", json, false},
                        {page, "404 Not Found", page, false},
                        {json, "302 Found", untyped, false, "Location: /portal\r\n"},
                        {json, "301 Moved", untyped, false, "Location: /gone\r\n"},
                        {json, "301 Moved", untyped, true, "Location: /there\r\n"}}) {
    SCOPED_TRACE(std::string(c.type) + " -> " + c.status + " " + c.newType + c.more);
    const auto fields = [](const char* type, std::string more) {
      if (*type != '\0') more += std::string("Content-Type: ") + type + "\r\n";
      return more + "Cache-Control: max-age=600\r\n";
    };
    ScriptedServer server([&, count = 0](const auto& request) mutable {
      if (request.target == "/portal") return test::answer("new", fields(page, ""));
      if (request.target == "/gone") return test::answer("new", fields(json, ""), "404 Not Found");
      if (request.target == "/there") return test::answer("new", fields(json, ""));
      return ++count == 1 ? test::answer("old", fields(c.type, ""))
                          : test::answer("new", fields(c.newType, c.more), c.status);
    });
    warm(server.url(), false);
    const auto result = warm(server.url(), true);
    EXPECT_EQ(offline(server.url()), c.replaced ? "new" : "old");
    const bool failed = std::holds_alternative<cachewarmer::FailedStatusCode>(result);
    EXPECT_EQ(failed, *c.status >= '4' || std::string_view(c.more).ends_with("/gone\r\n"));
  }
}

}  // namespace
}  // namespace paperloom::test
