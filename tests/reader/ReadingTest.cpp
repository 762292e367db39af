#include <gtest/gtest.h>

#include <fstream>
#include <nlohmann/json.hpp>

#include "paperloom/testing/SampleService.h"
#include "tests/reader/ReaderProcess.h"

namespace paperloom::test {
namespace {

using JSON = nlohmann::ordered_json;

class ReadingTest : public ::testing::Test {
 protected:
  JSON json(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), "--json");
    const ReaderOutcome outcome = reader_.run(arguments);
    EXPECT_EQ(outcome.status, 0) << outcome.error;
    return JSON::parse(outcome.out, nullptr, false);
  }

  std::unique_ptr<sample::SampleService> service_ = std::move(*sample::SampleService::start());
  Reader reader_{{"--content-url", service_->baseURL()}};
};

TEST_F(ReadingTest, recordsArePrintedWholeAndSayWhereTheyCameFrom) {
  const std::string article = service_->baseURL() + "/articles/storm-edda-live";
  struct Case {
    std::vector<std::string> arguments;
    std::vector<std::string> keys;
    bool isRequest = true;
  };
  const std::vector<std::string> streamKeys = {"premiumColourSet", "premiumLabelColourSet",
                                               "sections", "sponsoredArticles", "appMetadata"};
  const Case cases[] = {
      {{"config"}, {"sectionMetadata", "globalMetadata"}},
      {{"stream"}, streamKeys},
      {{"article", article},
       {"headline", "type", "authors", "publishedTime", "isPremium", "leadContent", "contents",
        "rating", "pageID", "sponsored", "sponsor", "websiteURL", "callToAction", "adZone",
        "businessSegment", "registrationWallModel", "wallType", "canInjectOutbrain"}},
      {{"image", "images/harbour-640.jpg"}, {"width", "height"}},
      {{"offline"}, streamKeys, false},
  };
  for (const Case& each : cases) {
    SCOPED_TRACE(each.arguments[0]);
    for (const char* source : {"network", "cache"}) {
      const JSON record = json(each.arguments);
      std::vector<std::string> keys = each.keys;
      keys.insert(keys.end(), {"source", "age", "fetchedAt"});
      std::vector<std::string> found;
      for (const auto& [key, value] : record.items()) found.push_back(key);
      EXPECT_EQ(found, keys);
      EXPECT_EQ(record["source"], each.isRequest ? source : "library");
      EXPECT_EQ(record["age"].is_null(), record["source"] != "cache");
    }
  }
}

TEST_F(ReadingTest, whatIsMissingOrNoNumberIsNull) {
  std::ofstream(reader_.folder() / "article.json") << R"({"headline": "h", "body": [
    {"type": "image", "renditions": [{"url": "http://h/i", "width": 0, "height": 1}]}]})";
  const JSON article = json({"parse", "article", (reader_.folder() / "article.json").string()});
  EXPECT_TRUE(article["rating"].is_null() && article["publishedTime"].is_null());
  EXPECT_TRUE(article["contents"][0]["asset"]["aspectRatio"].is_null());  // infinite
}

TEST_F(ReadingTest, aDateIsPrintedExactlyOrNotAtAll) {
  const std::pair<const char*, JSON> rows[] = {
      {"0000-01-01T00:00:00Z", "0000-01-01T00:00:00Z"},
      {"0000-01-01T00:00:00+00:01", nullptr},
      {"9999-12-31T23:59:59Z", "9999-12-31T23:59:59Z"},
      {"9999-12-31T23:59:59-00:01", nullptr},
  };
  for (const auto& [text, printed] : rows) {
    const JSON document = {{"headline", "h"}, {"body", JSON::array()}, {"datePublished", text}};
    const ReaderOutcome outcome = reader_.run({"--json", "parse", "article", "-"}, document.dump());
    EXPECT_EQ(JSON::parse(outcome.out, nullptr, false)["publishedTime"], printed) << text;
  }
}

TEST_F(ReadingTest, whatWasReadIsStillReadWhenTheServiceIsGone) {
  const std::string picture = (reader_.folder() / "picture.jpg").string();
  for (const bool gone : {false, true}) {
    if (gone) service_->stop();
    const ReaderOutcome page = reader_.run({"stream", "--sections", "sport,news"});
    EXPECT_EQ(page.status, 0) << page.error;
    EXPECT_LT(page.out.find("Sport ──"), page.out.find("News ──"));
    EXPECT_EQ(page.error.rfind(gone ? "From the cache, fetched " : "From the network\n", 0), 0U);
    const ReaderOutcome story = reader_.run({"article", "1"});
    EXPECT_EQ(story.status, 0) << story.error;
    const ReaderOutcome image = reader_.run({"image", "images/harbour-640.jpg", "--out", picture});
    EXPECT_EQ(image.status, 0) << image.error;
  }
  std::ifstream saved(picture, std::ios::binary);
  EXPECT_EQ(saved.get(), 0xFF);  // as the server sent it
  const ReaderOutcome unread = reader_.run({"article", "articles/tide-mill-turns"});
  EXPECT_EQ(unread.status, 1);
  EXPECT_EQ(unread.error.rfind("error: no answer, and no copy of an earlier one: could", 0), 0U)
      << unread.error;
}

TEST_F(ReadingTest, whatIsKeptOutlivesTheCacheAndEveryEndOfItsRefresh) {
  const std::vector<std::string> again = {"keep", "mine"};
  ASSERT_EQ(reader_.run({"keep", "mine", "articles/gallery-of-small-things"}).status, 0);
  const auto bytes = [&] {
    const JSON sets = JSON::parse(reader_.run({"--json", "kept"}).out)["sets"];
    return sets.size() == 1 && sets[0]["name"] == "mine" && sets[0]["damaged"] == false
               ? sets[0]["urls"].size()
               : 0U;
  };
  const auto whole = bytes();
  EXPECT_GT(whole, 1U);
  int operation = 0;
  while (reader_.runUntil(again, operation, "kept/")) {
    EXPECT_EQ(bytes(), whole) << operation;
    const std::filesystem::directory_iterator files(reader_.folder() / "kept");
    EXPECT_EQ(std::distance(begin(files), end(files)), 1) << operation;
    ++operation;
  }
  EXPECT_GT(operation, 4);

  service_->stop();
  ASSERT_EQ(reader_.run({"cache", "clear"}).status, 0);
  EXPECT_EQ(reader_.run({"article", "articles/gallery-of-small-things"}).status, 0);
  const ReaderOutcome failed = reader_.run(again);
  EXPECT_EQ(failed.status, 1);
  EXPECT_EQ(failed.error.rfind("error: mine is not kept anew, the old one stays: ", 0), 0U);
  EXPECT_EQ(reader_.run({"drop", "nine"}).error,
            "error: nothing is kept as nine; did you mean mine?\n");
  EXPECT_EQ(reader_.run({"drop", "mine"}).status, 0);
  EXPECT_EQ(reader_.run({"article", "articles/gallery-of-small-things"}).status, 1);
}

TEST_F(ReadingTest, theFrontPageIsWarmedWithTheImagesThatBelongToIt) {
  service_->setFaults(*sample::FaultPlan::parse("status=/articles/storm-edda-live:500"));
  const ReaderOutcome first = reader_.run({"--json", "warm", "--stream", "--sections", "news"});
  EXPECT_EQ(first.status, 1);
  EXPECT_EQ(first.error, "error: 1 document could not be fetched\n");
  std::istringstream lines(first.out);
  std::map<std::string, int> results;
  int images = 0;
  for (std::string line; std::getline(lines, line);) {
    const JSON item = JSON::parse(line, nullptr, false);
    if (item.contains("error")) continue;
    ++results[item["result"]];
    EXPECT_EQ(item["statusCode"], item["result"] == "failedStatusCode" ? JSON(500) : JSON());
    EXPECT_EQ(item["bytes"].is_null(), item["result"] == "failedStatusCode");
    if (item["url"].get<std::string>().find("/images/") != std::string::npos) ++images;
  }
  EXPECT_EQ(results["failedStatusCode"], 1);
  EXPECT_GT(results["success"], 10);
  EXPECT_GT(images, 3);

  service_->stop();
  const std::string image = service_->baseURL() + "/images/harbour-640.jpg";
  const std::string missing = service_->baseURL() + "/images/none.jpg";
  EXPECT_EQ(JSON::parse(reader_.run({"--json", "warm", image}).out)["result"], "successFromCache");
  for (const auto& arguments : {std::vector{missing}, std::vector<std::string>{image, "--force"}}) {
    std::vector<std::string> all = {"--json", "warm"};
    all.insert(all.end(), arguments.begin(), arguments.end());
    const ReaderOutcome outcome = reader_.run(all);
    EXPECT_EQ(outcome.status, 1);
    const std::string line = outcome.out.substr(0, outcome.out.find('\n'));
    EXPECT_EQ(JSON::parse(line)["result"], "networkError");
  }
}

TEST_F(ReadingTest, warmSaysWhatIsKeptAndWhyADocumentIsNot) {
  ReaderRun run;
  run.arguments = {"warm", "config", "images/harbour-640.jpg", "articles/tide-mill-turns"};
  run.largestFile = 32'768;  // room for the tables of the cache and little more
  const ReaderOutcome full = reader_.run(run);
  EXPECT_EQ(full.status, 1);
  EXPECT_NE(full.out.find("3 documents fetched, "), std::string::npos) << full.out;
  EXPECT_NE(full.out.find(" kept: the disk cannot be written; "), std::string::npos) << full.out;
  EXPECT_NE(full.error.find("not kept: the disk cannot be written"), std::string::npos);

  const std::string missing = service_->baseURL() + "/articles/tide-mill-turns";
  reader_.run({"cache", "clear"});
  service_->stop();
  const ReaderOutcome gone = reader_.run({"warm", missing});
  EXPECT_EQ(gone.status, 1);
  EXPECT_EQ(gone.out.find("no answer"), std::string::npos) << gone.out;
  EXPECT_NE(gone.out.find("could not connect"), std::string::npos) << gone.out;
}

TEST_F(ReadingTest, theCacheIsListedExplainedAndCleared) {
  EXPECT_EQ(json({"cache", "explain", "config"})["outcome"], "sent");
  ASSERT_EQ(reader_.run({"config"}).status, 0);
  EXPECT_EQ(json({"cache", "explain", "config"})["outcome"], "answeredFromCache");
  const JSON entries = json({"cache", "list"})["entries"];
  ASSERT_EQ(entries.size(), 1U);
  EXPECT_EQ(entries[0]["url"], service_->baseURL() + "/config");
  EXPECT_GT(json({"cache"})["currentDiskUsage"], 0);
  EXPECT_EQ(json({"cache", "clear"})["removed"], 1);
  EXPECT_EQ(json({"cache", "stats"})["entries"], 0);
}

TEST_F(ReadingTest, controlCCancelsAndLeavesTheCacheSound) {
  for (const auto& arguments : {std::vector<std::string>{"stream"},
                                {"article", "articles/tide-mill-turns"},
                                {"warm", "--stream"}}) {
    service_->setFaults(*sample::FaultPlan::parse(arguments[0] == "stream" ? "silent=/stream"
                                                                           : "silent=/articles"));
    service_->clearRequests();
    const ReaderRun run{.arguments = arguments,
                        .interruptWhen = [&] { return !service_->requests().empty(); }};
    const ReaderOutcome outcome = reader_.run(run);
    EXPECT_EQ(outcome.status, 130);
    EXPECT_EQ(outcome.error, "");
    EXPECT_EQ(outcome.out.find("not fetched yet.") != std::string::npos, arguments[0] == "warm");
    service_->setFaults({});
    EXPECT_EQ(reader_.run(arguments).status, 0);
  }
}

TEST_F(ReadingTest, aLongWaitSaysForWhomOnATerminalOnly) {
  service_->setFaults(*sample::FaultPlan::parse("latency=900"));
  const std::string line = "\rWaiting for " + service_->baseURL().substr(7) + " since ";
  for (const bool terminal : {true, false}) {
    reader_.run({"cache", "clear"});
    const ReaderRun run{.arguments = {"config"},
                        .environment = {{"TERM", "xterm"}},
                        .terminal = true,
                        .errorToTerminal = terminal};
    const ReaderOutcome outcome = reader_.run(run);
    EXPECT_EQ(outcome.out.find(line) != std::string::npos, terminal) << outcome.out;
    EXPECT_EQ(outcome.error, terminal ? "" : "From the network\n");
  }
}

TEST(EmbeddedServiceTest, isFoundAgainByTheNextReaderAndAskedThroughNoProxy) {
  const Reader reader;
  for (const char* source : {"network", "cache"}) {
    const ReaderRun run{
        .arguments = {"--json", "config"},
        .environment = {{"http_proxy", "http://127.0.0.1:1"}, {"NO_PROXY", "elsewhere.example"}}};
    const ReaderOutcome outcome = reader.run(run);
    ASSERT_EQ(outcome.status, 0) << outcome.error;
    EXPECT_EQ(JSON::parse(outcome.out)["source"], source);
  }
}

TEST(DemoTest, goesThroughToTheOfflineStory) {
  const ReaderOutcome outcome = Reader().run({"demo"});
  EXPECT_EQ(outcome.status, 0) << outcome.error;
  for (const char* part :
       {"is for premium readers", "Logged in; premium stories are open", "The story, offline"}) {
    EXPECT_NE(outcome.out.find(part), std::string::npos) << part;
  }
  EXPECT_NE(outcome.error.find("\nFrom the cache, fetched "), std::string::npos) << outcome.error;
}

}  // namespace
}  // namespace paperloom::test
