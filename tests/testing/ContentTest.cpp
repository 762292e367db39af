#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "paperloom/model/ArticleParser.h"
#include "paperloom/model/DocumentParsers.h"
#include "paperloom/testing/SampleDocuments.h"
#include "tests/testing/RunningService.h"

namespace paperloom::test {
namespace {

using nlohmann::json;

std::vector<std::string> uidsOf(const json& stream) {
  std::vector<std::string> uids;
  for (const json& section : stream.at("sections")) uids.push_back(section.at("uid"));
  return uids;
}

TEST(ContentTest, streamHoldsTheSectionsAskedForInTheOrderAskedFor) {
  const auto everything = uidsOf(json::parse(sample::document("/stream").view()));
  EXPECT_GE(everything.size(), 6U);
  const std::pair<std::string, std::vector<std::string>> cases[] = {
      {"/stream?uids=", everything},
      {"/stream?uids=sport,news", {"sport", "news"}},
      {"/stream?uids=nowhere,culture,culture,,x", {"culture"}},
      {"/stream?uids=nowhere", {}},
  };
  for (const auto& [path, uids] : cases) {
    const json stream = json::parse(sample::document(path).view());
    EXPECT_EQ(uidsOf(stream), uids) << path;
    EXPECT_EQ(stream.at("sectionMetaData").size(), everything.size()) << path;
  }
}

TEST(ContentTest, theLibraryReadsEveryDocumentAndDropsOnlyTheBadCards) {
  const std::string base = "http://paper.example";
  EXPECT_TRUE(makeConfigParser()->parse(sample::document("/config", base)));
  const auto stream = makeStreamParser()->parse(sample::document("/stream", base));
  ASSERT_TRUE(stream);
  std::size_t cards = 0;
  std::set<std::string> paths;
  std::set<std::string> images;
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
    const auto article = ArticleParser().parse(sample::document(path, base));
    ASSERT_TRUE(article) << path;
    EXPECT_TRUE((*article)->publishedTime()) << path;
    for (const auto& block : (*article)->contents()) blocks.insert(block.value.index());
  }
  // Every alternative but the two that no document can give: blockquote and embed.
  EXPECT_EQ(blocks, (std::set<std::size_t>{0, 1, 4, 5, 6, 7, 8, 9, 10}));
  for (const std::string& path : images) {
    EXPECT_TRUE(makeImageParser()->parse(sample::document(path, base))) << path;
  }
}

TEST(ContentTest, validatorsDecideBetween200And304) {
  RunningService running;
  const Answer first = running.get("/config");
  ASSERT_TRUE(first.response);
  const auto field = [&](const char* name) -> std::string {
    return std::string(first.response->headers.first(name).value_or(""));
  };
  EXPECT_EQ(field("Cache-Control"), "max-age=60");
  const std::string tag = field("ETag");
  const std::pair<HTTPHeaders, int> cases[] = {
      {{{"If-None-Match", tag}}, 304},
      {{{"If-None-Match", "\"other\", W/" + tag}}, 304},
      {{{"If-None-Match", "\"other\""}}, 200},
      {{{"If-None-Match", "\"other\""}, {"If-Modified-Since", field("Last-Modified")}}, 200},
      {{{"If-Modified-Since", field("Last-Modified")}}, 304},
      {{{"If-Modified-Since", "Thu, 01 Jan 2015 00:00:00 GMT"}}, 200},
  };
  for (const auto& [headers, status] : cases) {
    SCOPED_TRACE(::testing::PrintToString(headers.begin()->second));
    const Answer answer = running.get("/config", headers);
    EXPECT_EQ(answer.status(), status);
    EXPECT_EQ(answer.body(), status == 304 ? "" : first.body());
    EXPECT_TRUE(status == 200 || !answer.response->headers.contains("Content-Length"));
  }
  const auto tagOf = [&](const char* target) {
    const Answer answer = running.get(target);
    return std::string(answer.response->headers.first("ETag").value_or(""));
  };
  EXPECT_NE(tagOf("/stream?uids=news"), tagOf("/stream?uids=sport"));
  EXPECT_EQ(uidsOf(json::parse(running.get("/stream?uids=sport%2Cnews").body())),
            (std::vector<std::string>{"sport", "news"}));
}

}  // namespace
}  // namespace paperloom::test
