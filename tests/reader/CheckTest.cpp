#include <gtest/gtest.h>

#include <fstream>
#include <nlohmann/json.hpp>

#include "paperloom/testing/SampleDocuments.h"
#include "paperloom/testing/ScriptedServer.h"
#include "tests/reader/ReaderProcess.h"

namespace paperloom::test {
namespace {

using JSON = nlohmann::ordered_json;

constexpr auto faulty = R"({
  "headline": "h",
  "premium": "<&\u0001\"",
  "body": [{"text": "lost"}]
})";

class CheckTest : public ::testing::Test {
 protected:
  Reader reader_;
};

TEST_F(CheckTest, theExitStatusTellsWhetherThereIsSomethingToDo) {
  struct Case {
    std::vector<std::string> arguments;
    std::string input;
    int status;
  };
  const Case cases[] = {
      {{"article", "-"}, R"({"headline": "h"})", 0},
      {{"article", "-"}, R"({"headline": "h", "odd": 1})", 0},
      {{"article", "-"}, R"({"headline": "h", "premium": 1})", 1},
      {{"article", "-"}, R"({"headline": 1})", 1},
      {{"image", "-"}, std::string(sample::document("/images/gallery-320.png").view()), 0},
      {{"image", "-"}, "no picture", 1},
      {{"registration", "-"}, "{}", 1},
      {{"article", "/nowhere"}, "", 1},
      {{"novel", "-"}, "", 2},
      {{"article"}, "", 2},
      {{"article", "-", "--stream"}, "", 2},
      {{"article", "-", "--junit", "--sarif"}, "", 2},
  };
  for (const Case& each : cases) {
    std::vector<std::string> arguments = {"check"};
    arguments.insert(arguments.end(), each.arguments.begin(), each.arguments.end());
    const ReaderOutcome outcome = reader_.run(arguments, each.input);
    EXPECT_EQ(outcome.status, each.status) << each.arguments[0] << outcome.out << outcome.error;
  }
}

TEST_F(CheckTest, everyFormSaysTheSame) {
  const std::string file = (reader_.folder() / "a b.json").string();
  std::ofstream(file) << faulty;
  const auto run = [&](const std::string& option) {
    const ReaderOutcome outcome = reader_.run({"check", "article", file, option});
    EXPECT_EQ(outcome.status, 1);
    return outcome.out;
  };
  const JSON plain = JSON::parse(run("--json"));
  EXPECT_EQ(plain["documents"], 1);
  ASSERT_EQ(plain["findings"].size(), 2U) << plain;
  const std::string message = "\"type\" is missing: the block is not shown";
  const JSON expected = {{"document", file},  {"path", "/body/0"},   {"line", 4},
                         {"column", 12},      {"severity", "error"}, {"rule", "missing-key"},
                         {"message", message}};
  EXPECT_EQ(plain["findings"][1], expected);

  const JSON sarif = JSON::parse(run("--sarif"))["runs"][0];
  const JSON result = sarif["results"][1];
  const JSON place = result["locations"][0]["physicalLocation"];
  EXPECT_EQ(result["ruleId"], "missing-key");
  EXPECT_EQ(result["level"], "error");
  EXPECT_EQ(result["message"]["text"], message);
  EXPECT_EQ(place["region"], (JSON{{"startLine", 4}, {"startColumn", 12}}));
  EXPECT_TRUE(place["artifactLocation"]["uri"].get<std::string>().ends_with("/a%20b.json"));
  for (const JSON& each : sarif["results"]) {
    const JSON& rules = sarif["tool"]["driver"]["rules"];
    EXPECT_TRUE(std::any_of(rules.begin(), rules.end(), [&](const JSON& rule) {
      return rule["id"] == each["ruleId"];
    })) << each;
  }

  const std::string junit = run("--junit");
  EXPECT_NE(junit.find("tests=\"2\" failures=\"2\""), std::string::npos) << junit;
  EXPECT_NE(junit.find("message=\"error: &quot;type&quot; is missing: the block is not shown at "
                       "/body/0\""),
            std::string::npos)
      << junit;
  EXPECT_NE(run("--color=never").find("a b.json:4:12: error: " + message + " [missing-key]\n"),
            std::string::npos);
}

// A front page over a server that misbehaves in one way for each of its documents.
TEST_F(CheckTest, aFrontPageIsFollowedToItsArticlesAndPictures) {
  JSON page = JSON::parse(sample::document("/stream?uids=coast").view());
  const auto link = [](const char* target, int width) {
    return JSON{{"url", target}, {"width", width}, {"height", 400}};
  };
  const auto card = [](const char* name, JSON rendition) {
    return JSON{
        {"headline", "h"},
        {"qrvId", name},
        {"url", name},
        {"cardAsset", {{"type", "image"}, {"renditions", JSON::array({std::move(rendition)})}}}};
  };
  page["sections"] =
      JSON::array({{{"uid", "coast"},
                    {"previews",
                     {card("good", link("true", 640)), card("gone", link("other", 640)),
                      card("fine", link("text", 640)), card("faulty", link("true", 641))}}}});
  page["sponsoredContent"] = JSON::array();
  page["sectionMetaData"] = JSON::array({page["sectionMetaData"][1]});
  const std::string picture(sample::document("/images/harbour-640.jpg").view());
  const std::string kept = "Cache-Control: max-age=60\r\n";
  const std::map<std::string, Script> answers = {
      {"/page", answer(page.dump(), kept)},
      {"/good", answer(R"({"headline": "h"})", "Cache-Control: no-store\r\n")},
      {"/fine", answer(R"({"headline": "h"})")},
      {"/faulty", answer(faulty, kept)},
      {"/true", answer(picture, kept)},
      {"/other", answer(sample::document("/images/harbour-320.jpg").view(), kept)},
      {"/text", answer("no picture", kept)},
  };
  ScriptedServer server([&](const auto& request) {
    const auto found = answers.find(request.target);
    return found != answers.end() ? found->second : answer("", "", "404 Not Found");
  });
  const std::string root = server.url("/").absoluteString();
  const ReaderOutcome outcome =
      reader_.run({"--json", "--content-url", root, "check", "--stream", root + "page"});
  EXPECT_EQ(outcome.status, 1) << outcome.error;
  const JSON report = JSON::parse(outcome.out);
  EXPECT_EQ(report["documents"], 8);
  std::set<std::string> found;
  for (const JSON& each : report["findings"]) {
    found.insert(each["document"].get<std::string>().substr(root.size()) + " " +
                 each["path"].get<std::string>() + " " + each["rule"].get<std::string>());
  }
  const std::string cards = "page /sections/0/previews/";
  const std::string first = "/cardAsset/renditions/0/";
  const std::set<std::string> expected = {
      cards + "1/url no-answer",
      cards + "1" + first + "width other-size",
      cards + "2" + first + "url no-picture",
      cards + "3" + first + "width other-size",
      "good  not-kept",
      "fine  always-fetched",
      "faulty /premium wrong-type",
      "faulty /body/0 missing-key",
  };
  EXPECT_EQ(found, expected) << outcome.out;
}

}  // namespace
}  // namespace paperloom::test
