#include "paperloom/platform/Events.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <mutex>

#include "paperloom/identity/AuthDataCoordinator.h"
#include "paperloom/model/ArticleParser.h"
#include "paperloom/network/AuthSessionManager.h"
#include "paperloom/network/ContentSessionManager.h"
#include "paperloom/network/DataCoordinator.h"
#include "paperloom/testing/Captured.h"
#include "paperloom/testing/ScriptedServer.h"

namespace paperloom::test {
namespace {

struct InWords {
  std::string operator()(const event::RequestStarted& e) const {
    return "started " + e.method + " " + e.url.path() + (e.inBackground ? " behind" : "");
  }
  std::string operator()(const event::RequestAnswered& e) const {
    static constexpr const char* sources[] = {"network", "cache", "revalidated", "stale"};
    const std::string status = e.statusCode ? std::to_string(*e.statusCode) : "failed";
    return "answered " + status + " " + sources[static_cast<int>(e.source)] + " " +
           std::to_string(e.bytes) + (e.duration.count() > 0 ? "" : " in no time");
  }
  std::string operator()(const event::CopyKept& e) const {
    return "kept " + e.url.path() + " " + std::to_string(e.size);
  }
  std::string operator()(const event::CopyRefused& e) const { return "refused: " + e.reason; }
  std::string operator()(const event::PartDropped& e) const {
    return "dropped " + e.section + " " + std::to_string(e.index) + ": " + e.reason;
  }
  std::string operator()(const event::TokensRefreshed& e) const {
    static constexpr const char* outcomes[] = {"refreshed", "refused", "failed"};
    return std::string("tokens ") + outcomes[static_cast<int>(e.outcome)];
  }
  std::string operator()(const event::WarmingProgress&) const { return "warmed"; }
};

class EventsTest : public ::testing::Test {
 protected:
  EventsTest() { listen(); }
  ~EventsTest() override { Events::setListener(nullptr); }

  void listen() {
    Events::setListener([this](const Event& event) {
      const std::lock_guard lock(mutex);
      heard.push_back(std::visit(InWords(), event));
      std::visit(
          [](const auto& e) {
            if constexpr (requires { e.url; }) {
              EXPECT_EQ(e.url.absoluteString().find("secret"), std::string::npos);
            }
          },
          event);
    });
  }
  std::vector<std::string> take() {
    const std::lock_guard lock(mutex);
    return std::exchange(heard, {});
  }

  std::mutex mutex;
  std::vector<std::string> heard;
};

TEST_F(EventsTest, ofADocumentFromItsRequestToItsCopy) {
  struct Row {
    const char* what;
    Script script;
    std::vector<std::string> expected;
  };
  const std::string good = R"({"headline":"x"})";
  const std::string started = "started GET /a";
  const Row rows[] = {
      {"kept",
       answer(good, "Cache-Control: max-age=0\r\n"),
       {started, "kept /a 16", "answered 200 network 16"}},
      {"forbidden",
       answer(good, "Cache-Control: no-store\r\n"),
       {started, "refused: the answer forbids it (no-store)", "answered 200 network 16"}},
      {"portal",
       answer("[]", "Cache-Control: max-age=9\r\n"),
       {started, "refused: its receiver does not accept it", "answered 200 network 2"}},
      {"without a whole answer", {closeConnection()}, {started, "answered failed network 0"}},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    ScriptedServer server(row.script);
    ContentSessionManager manager(std::make_shared<URLCache>());
    using Item = std::shared_ptr<const ArticleProtocol>;
    const auto ask = [&] {
      captured<std::pair<Result<Item>, Provenance>>([&](auto done) {
        manager.getDocument<Item>(server.url("/a?key=secret#secret"),
                                  std::make_shared<ArticleParser>(), done);
      });
      return take();
    };
    EXPECT_EQ(ask(), row.expected);
    Events::setListener(nullptr);
    EXPECT_TRUE(ask().empty());
    listen();
  }
}

TEST_F(EventsTest, ofPartsThatAStreamLeavesOut) {
  const auto document = JSONDocument::parse(R"({"globalMetaData":{"premiumPrimaryColour":"a",
    "premiumSecondaryColour":"b","premiumAccessibleColour":"c","fallbackCards":[],
    "premiumLabelColourOnNormalBackground":"d","premiumLabelColourOnSecondaryBackground":"e"},
    "sectionMetaData":[],
    "sponsoredContent":[],"sections":[{"uid":"news","previews":[{}, {"url":1}]}, {}]})");
  ASSERT_TRUE(document);
  static_cast<void>(Stream::parse(*document->object()));
  const auto dropped = take();
  ASSERT_EQ(dropped.size(), 3U) << ::testing::PrintToString(dropped);
  EXPECT_EQ(dropped[0].rfind("dropped news 0: ", 0), 0U);
  EXPECT_EQ(dropped[1].rfind("dropped news 1: ", 0), 0U);
  EXPECT_EQ(dropped[2], "dropped  1: failed to parse JSON into section");
}

TEST_F(EventsTest, ofRefreshesOfTokens) {
  const std::string tokens =
      R"({"accessToken":"secret","refreshToken":"secret","idToken":"secret"})";
  const std::pair<Script, const char*> table[] = {{answer(tokens), "tokens refreshed"},
                                                  {answer("", "", "401 No"), "tokens refused"},
                                                  {answer("", "", "500 Oops"), "tokens failed"},
                                                  {{closeConnection()}, "tokens failed"}};
  for (const auto& [script, expected] : table) {
    ScriptedServer server(script);
    AuthDataCoordinator coordinator(
        std::make_shared<AuthSessionManager>(URLSessionConfiguration()));
    coordinator.setBaseURL(server.url());
    using Answer = RequestResult<std::shared_ptr<const ContentAuthorisationProtocol>>;
    captured<Answer>([&](auto done) { coordinator.refreshToken("secret", done); });
    const auto all = take();
    EXPECT_EQ(std::count(all.begin(), all.end(), expected), 1) << expected;
    EXPECT_THAT(all, ::testing::Each(::testing::Not(::testing::HasSubstr("secret"))));
  }
}

}  // namespace
}  // namespace paperloom::test
