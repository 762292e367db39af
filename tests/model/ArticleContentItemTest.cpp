#include "paperloom/model/ArticleContentItem.h"

#include <gtest/gtest.h>

#include "apps/reader/RecordJSON.h"
#include "paperloom/model/Article.h"
#include "tests/model/Documents.h"

namespace paperloom::test {
namespace {

// The blocks as the reader shows them, without what they hold of an asset.
reader::JSON blocks(const json& body) {
  auto shown = reader::toJSON(*parse<Article>({{"headline", "h"}, {"body", body}}))["contents"];
  for (auto& each : shown) each.erase("asset");
  return shown;
}

TEST(ArticleContentItemTest, everyTypeBuildsItsBlockOrUnknown) {
  const json video = with(image, {{"type", "video"}});
  const char* const unknown = R"({"case":"unknown"})";
  const std::pair<json, const char*> table[] = {
      {{{"type", "text"}, {"text", "a"}}, R"({"case":"body","text":"a"})"},
      {{{"type", "text"}, {"text", 1}}, unknown},
      {{{"type", "Text"}, {"text", "a"}}, unknown},
      {{{"type", "heading"}, {"level", 1}, {"text", "x"}},
       R"({"case":"heading","style":1,"text":"x"})"},
      {{{"type", "heading"}, {"level", 6.0}, {"text", ""}},
       R"({"case":"heading","style":6,"text":""})"},
      {{{"type", "heading"}, {"level", 0}, {"text", "x"}}, unknown},
      {{{"type", "heading"}, {"level", 7}, {"text", "x"}}, unknown},
      {{{"type", "heading"}, {"level", -1}, {"text", "x"}}, unknown},
      {{{"type", "heading"}, {"level", "2"}, {"text", "x"}}, unknown},
      {{{"type", "heading"}, {"level", 2}}, unknown},
      {image, R"({"case":"image"})"},
      {with(image, {{"renditions", json::array()}}), unknown},
      {with(video, {{"videoEmbedId", "v"}}), R"({"case":"video"})"},
      {video, unknown},
      {{{"type", "youtube"}, {"videoEmbedId", "y"}}, R"({"case":"youtube","embedID":"y"})"},
      {{{"type", "youtube"}, {"videoEmbedId", 3}}, unknown},
      {{{"type", "tweet"}, {"tweetId", "t"}}, R"({"case":"tweet","embedId":"t"})"},
      {{{"type", "tweet"}}, unknown},
      {{{"type", "particle"}, {"embedSrc", "s"}, {"text", "x"}},
       R"({"case":"particle","particle":{"embedSrc":"s","text":"x"}})"},
      {{{"type", "particle"}, {"embedSrc", "s"}, {"text", 1}, {"more", "m"}},
       R"({"case":"particle","particle":{"embedSrc":"s","text":""}})"},
      {{{"type", "particle"}, {"text", "x"}}, unknown},
      {{{"type", "livepost"}, {"time", "2018-03-01T14:05:09+01:00"}},
       R"({"case":"livepost","time":"2018-03-01T13:05:09Z"})"},
      {{{"type", "livepost"}, {"time", "2018-03-01 14:05"}}, unknown},
      {{{"type", "livepost"}, {"time", 5}}, unknown},
      {{{"type", "blockquote"}, {"text", "q"}}, unknown},
      {{{"type", "embed"}, {"content", "c"}}, unknown},
      {{{"type", "quiz"}}, unknown},
      {{{"type", ""}}, unknown},
  };
  for (const auto& [block, expected] : table) {
    EXPECT_EQ(blocks(json::array({block})).dump(), "[" + std::string(expected) + "]") << block;
  }
}

TEST(ArticleContentItemTest, elementsWithoutATypeVanishAndTheOthersKeepTheirPlace) {
  const json body = {{{"type", "text"}, {"text", "a"}},
                     {{"text", "b"}},
                     {{"type", 1}},
                     {{"type", "quiz"}},
                     {{"type", "text"}, {"text", "c"}}};
  EXPECT_EQ(blocks(body).dump(),
            R"([{"case":"body","text":"a"},{"case":"unknown"},{"case":"body","text":"c"}])");
  EXPECT_TRUE(blocks(json::array()).empty());
}

TEST(ArticleContentItemTest, isTypeComparesTheAlternativesOnly) {
  using Item = ArticleContentItem;
  const Item one{Item::Heading{HeadingStyle::one, "x"}};
  EXPECT_TRUE(one.isType({Item::Heading{HeadingStyle::six, "y"}}));
  EXPECT_TRUE(Item().isType({Item::Unknown{}}));
  EXPECT_FALSE(Item{Item::Body{"a"}}.isType({Item::Blockquote{"a"}}));
  EXPECT_FALSE(one.isType({}));
}

}  // namespace
}  // namespace paperloom::test
