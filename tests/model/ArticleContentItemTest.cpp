#include "paperloom/model/ArticleContentItem.h"

#include <gtest/gtest.h>

#include "paperloom/platform/DateFormatter.h"
#include "tests/model/Documents.h"

namespace paperloom::test {
namespace {

std::vector<ArticleContentItem> parseBody(const json& body) {
  const auto document = JSONDocument::parse(json{{"body", body}}.dump());
  return ArticleContentItem::parseBody(*document->object()->objects("body"));
}

// The block's name and what it holds, in short.
std::string description(const ArticleContentItem& item) {
  using Item = ArticleContentItem;
  const auto& value = item.value;
  std::string held;
  if (const auto* heading = std::get_if<Item::Heading>(&value)) {
    held = std::to_string(rawValue(heading->style)) + heading->text;
  }
  if (const auto* body = std::get_if<Item::Body>(&value)) held = body->text;
  if (const auto* image = std::get_if<Item::Image>(&value)) held = rawValue(image->asset.type);
  if (const auto* video = std::get_if<Item::Video>(&value)) held = rawValue(video->asset.type);
  if (const auto* youtube = std::get_if<Item::Youtube>(&value)) held = youtube->embedID;
  if (const auto* tweet = std::get_if<Item::Tweet>(&value)) held = tweet->embedId;
  if (const auto* particle = std::get_if<Item::Particle>(&value)) {
    held = json(particle->particle).dump();
  }
  if (const auto* post = std::get_if<Item::Livepost>(&value)) {
    held = DateFormatter::shared().string(post->time);
  }
  return std::string(item.caseName()) + ":" + held;
}

TEST(ArticleContentItemTest, everyTypeBuildsItsBlockOrUnknown) {
  const json video = with(image, {{"type", "video"}});
  const std::pair<json, const char*> table[] = {
      {{{"type", "text"}, {"text", "a"}}, "body:a"},
      {{{"type", "text"}, {"text", 1}}, "unknown:"},
      {{{"type", "Text"}, {"text", "a"}}, "unknown:"},
      {{{"type", "heading"}, {"level", 1}, {"text", "x"}}, "heading:1x"},
      {{{"type", "heading"}, {"level", 6.0}, {"text", ""}}, "heading:6"},
      {{{"type", "heading"}, {"level", 0}, {"text", "x"}}, "unknown:"},
      {{{"type", "heading"}, {"level", 7}, {"text", "x"}}, "unknown:"},
      {{{"type", "heading"}, {"level", -1}, {"text", "x"}}, "unknown:"},
      {{{"type", "heading"}, {"level", "2"}, {"text", "x"}}, "unknown:"},
      {{{"type", "heading"}, {"level", 2}}, "unknown:"},
      {image, "image:image"},
      {with(image, {{"renditions", json::array()}}), "unknown:"},
      {with(video, {{"videoEmbedId", "v"}}), "video:video"},
      {video, "unknown:"},
      {{{"type", "youtube"}, {"videoEmbedId", "y"}}, "youtube:y"},
      {{{"type", "youtube"}, {"videoEmbedId", 3}}, "unknown:"},
      {{{"type", "tweet"}, {"tweetId", "t"}}, "tweet:t"},
      {{{"type", "tweet"}}, "unknown:"},
      {{{"type", "particle"}, {"embedSrc", "s"}, {"text", "x"}},
       R"(particle:{"embedSrc":"s","text":"x"})"},
      {{{"type", "particle"}, {"embedSrc", "s"}, {"text", 1}, {"more", "m"}},
       R"(particle:{"embedSrc":"s","text":""})"},
      {{{"type", "particle"}, {"text", "x"}}, "unknown:"},
      {{{"type", "livepost"}, {"time", "2018-03-01T14:05:09+01:00"}},
       "livepost:2018-03-01T13:05:09Z"},
      {{{"type", "livepost"}, {"time", "2018-03-01 14:05"}}, "unknown:"},
      {{{"type", "livepost"}, {"time", 5}}, "unknown:"},
      {{{"type", "blockquote"}, {"text", "q"}}, "unknown:"},
      {{{"type", "embed"}, {"content", "c"}}, "unknown:"},
      {{{"type", "quiz"}}, "unknown:"},
      {{{"type", ""}}, "unknown:"},
  };
  for (const auto& [block, expected] : table) {
    const auto items = parseBody(json::array({block}));
    ASSERT_EQ(items.size(), 1U) << block;
    EXPECT_EQ(description(items[0]), expected) << block;
  }
}

TEST(ArticleContentItemTest, elementsWithoutATypeVanishAndTheOthersKeepTheirPlace) {
  const auto items = parseBody({{{"type", "text"}, {"text", "a"}},
                                {{"text", "b"}},
                                {{"type", 1}},
                                {{"type", "quiz"}},
                                {{"type", "text"}, {"text", "c"}}});
  std::string all;
  for (const auto& item : items) all += description(item) + " ";
  EXPECT_EQ(all, "body:a unknown: body:c ");
  EXPECT_TRUE(parseBody(json::array()).empty());
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
