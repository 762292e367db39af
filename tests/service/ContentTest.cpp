#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "paperloom/model/ArticleParser.h"
#include "paperloom/model/DocumentParsers.h"
#include "tests/service/RunningService.h"

namespace paperloom::sample {
namespace {

using nlohmann::json;

Data documentAt(const RunningService& running, const std::string& path) {
  const auto result = running.client->Get(path);
  EXPECT_TRUE(result && result->body.find("\"{{") == std::string::npos) << path;
  return Data(result && result->status == 200 ? result->body : std::string());
}

std::vector<std::string> uidsOf(const json& stream) {
  std::vector<std::string> uids;
  for (const json& section : stream.at("sections")) uids.push_back(section.at("uid"));
  return uids;
}

TEST(SampleContent, streamHoldsTheSectionsAskedForInTheOrderAskedFor) {
  const RunningService running;
  const auto everything = uidsOf(json::parse(documentAt(running, "/stream").view()));
  EXPECT_GE(everything.size(), 6U);
  const std::pair<std::string, std::vector<std::string>> cases[] = {
      {"/stream?uids=", everything},
      {"/stream?uids=sport%2Cnews", {"sport", "news"}},
      {"/stream?uids=nowhere,culture,culture,,x", {"culture"}},
      {"/stream?uids=nowhere", {}},
  };
  for (const auto& [path, uids] : cases) {
    const json stream = json::parse(documentAt(running, path).view());
    EXPECT_EQ(uidsOf(stream), uids) << path;
    EXPECT_EQ(stream.at("sectionMetaData").size(), everything.size()) << path;
  }
}

TEST(SampleContent, theLibraryReadsEveryDocumentAndDropsOnlyTheBadCards) {
  const RunningService running;
  EXPECT_TRUE(makeConfigParser()->parse(documentAt(running, "/config")));
  const auto stream = makeStreamParser()->parse(documentAt(running, "/stream"));
  ASSERT_TRUE(stream);
  std::size_t cards = 0;
  std::set<std::string> paths;
  std::set<std::string> images;
  const std::string base = running.service->baseURL();
  for (const auto& section : (*stream)->sections()) {
    for (const auto& card : section->articleHeaders()) {
      ++cards;
      paths.insert(card->URL().absoluteString().substr(base.size()));
      if (!card->cardAsset()) continue;
      for (const auto& rendition : card->cardAsset()->renditions) {
        images.insert(rendition.url.absoluteString().substr(base.size()));
      }
    }
  }
  EXPECT_EQ(cards, 66U);
  EXPECT_EQ((*stream)->sponsoredArticles().size(), 3U);

  std::set<std::size_t> blocks;
  for (const std::string& path : paths) {
    const auto article = ArticleParser().parse(documentAt(running, path));
    ASSERT_TRUE(article) << path;
    EXPECT_TRUE((*article)->publishedTime()) << path;
    for (const auto& block : (*article)->contents()) blocks.insert(block.value.index());
  }
  // Every alternative but the two that no document can give: blockquote and embed.
  EXPECT_EQ(blocks, (std::set<std::size_t>{0, 1, 4, 5, 6, 7, 8, 9, 10}));
  for (const std::string& path : images) {
    EXPECT_TRUE(makeImageParser()->parse(documentAt(running, path))) << path;
  }
}

TEST(SampleContent, validatorsDecideBetween200And304) {
  const RunningService running;
  const auto first = running.client->Get("/config");
  ASSERT_TRUE(first);
  const std::string tag = first->get_header_value("ETag");
  const std::string changed = first->get_header_value("Last-Modified");
  EXPECT_EQ(first->get_header_value("Cache-Control"), "max-age=60");
  const std::vector<std::pair<httplib::Headers, int>> cases = {
      {{{"If-None-Match", tag}}, 304},
      {{{"If-None-Match", "\"other\", W/" + tag}}, 304},
      {{{"If-None-Match", "\"other\""}}, 200},
      {{{"If-None-Match", "\"other\""}, {"If-Modified-Since", changed}}, 200},
      {{{"If-Modified-Since", changed}}, 304},
      {{{"If-Modified-Since", "Thu, 01 Jan 2015 00:00:00 GMT"}}, 200},
  };
  for (auto [headers, status] : cases) {
    headers.emplace("Connection", "close");  // this client waits for the body of a 304 otherwise
    const auto result = running.client->Get("/config", headers);
    ASSERT_TRUE(result) << status << " " << headers.rbegin()->second;
    EXPECT_EQ(result->status, status) << status << " " << headers.rbegin()->second;
    EXPECT_EQ(result->body, status == 304 ? "" : first->body)
        << status << " " << headers.rbegin()->second;
    EXPECT_EQ(result->has_header("Content-Length"), status == 200);
  }
  EXPECT_NE(running.client->Get("/stream?uids=news")->get_header_value("ETag"),
            running.client->Get("/stream?uids=sport")->get_header_value("ETag"));
}

}  // namespace
}  // namespace paperloom::sample
