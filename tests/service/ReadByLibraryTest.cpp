#include <set>
#include <string>
#include <variant>

#include <gtest/gtest.h>

#include "paperloom/model/ArticleParser.h"
#include "paperloom/model/DocumentParsers.h"
#include "paperloom/network/internal/OfflineResource.h"
#include "tests/service/RunningService.h"

namespace paperloom::sample {
namespace {

Data fetch(const RunningService& running, const std::string& path) {
  const auto result = running.client->Get(path);
  return Data(result && result->status == 200 ? result->body : std::string());
}

TEST(SampleContent, theLibraryReadsEveryDocumentAndDropsOnlyTheBadCards) {
  const RunningService running;
  EXPECT_TRUE(makeConfigParser()->parse(fetch(running, "/config")));
  const auto stream = makeStreamParser()->parse(fetch(running, "/stream"));
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
  paths.erase("/articles/tide-tables-1998");  // the one dead link
  for (const std::string& path : paths) {
    const auto article = ArticleParser().parse(fetch(running, path));
    ASSERT_TRUE(article) << path;
    EXPECT_TRUE((*article)->publishedTime()) << path;
    for (const auto& block : (*article)->contents()) blocks.insert(block.value.index());
  }
  // Every alternative but the two that no document can give: blockquote and embed.
  EXPECT_EQ(blocks, (std::set<std::size_t>{0, 1, 4, 5, 6, 7, 8, 9, 10}));
  for (const std::string& path : images) {
    EXPECT_TRUE(makeImageParser()->parse(fetch(running, path))) << path;
  }
}

TEST(OfflineStream, theShippedDocumentIsAWholeFrontPage) {
  const auto stream = makeStreamParser()->parse(offlineResource("sectionList"));
  ASSERT_TRUE(stream);
  EXPECT_EQ((*stream)->sections().size(), 3U);
  EXPECT_FALSE((*stream)->sponsoredArticles().empty());
  for (const auto& section : (*stream)->sections()) {
    EXPECT_GE(section->articleHeaders().size(), 3U);
    for (const auto& card : section->articleHeaders()) EXPECT_TRUE(card->cardAsset());
  }
}

}  // namespace
}  // namespace paperloom::sample
