#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <tuple>

#include "paperloom/model/ArticleContentItem.h"
#include "paperloom/model/ArticleHeader.h"
#include "paperloom/model/Asset.h"
#include "paperloom/model/Renditions.h"
#include "paperloom/model/Sponsor.h"
#include "tests/model/Documents.h"

namespace paperloom::test {
namespace {

json sized(const json& width, const json& height) {
  return with(rendition, {{"width", width}, {"height", height}});
}

std::string sizes(const Asset& asset) {
  std::string text;
  for (const auto& each : asset.renditions) {
    text += std::to_string(each.width) + "x" + std::to_string(each.height) + " ";
  }
  return text;
}

TEST(AssetTest, theFirstFailingCheckGivesItsText) {
  const std::string shape = "parsingFailed: failed to parse JSON into Asset";
  const std::string type = "parsingFailed: invalid asset type found";
  const std::string embed = "parsingFailed: No video embed Id";
  const std::string none = "parsingFailed: No renditions found";
  const json video = with(image, {{"type", "video"}, {"videoEmbedId", "v"}});
  const std::pair<json, std::string> table[] = {
      {image, "parsed"},
      {video, "parsed"},
      {with(image, {{"type", absent}}), shape},
      {with(image, {{"type", 1}}), shape},
      {with(image, {{"renditions", absent}, {"type", "Video"}}), shape},
      {with(image, {{"renditions", rendition}}), shape},
      {with(image, {{"renditions", {rendition, nullptr}}}), shape},
      {with(image, {{"type", "Video"}}), type},
      {with(image, {{"type", "IMAGE"}}), type},
      {with(image, {{"type", ""}, {"renditions", json::array()}}), type},
      {with(video, {{"videoEmbedId", absent}, {"renditions", json::array()}}), embed},
      {with(video, {{"videoEmbedId", 12345}}), embed},
      {with(image, {{"renditions", json::array()}}), none},
      {with(image, {{"renditions", {sized("640", 480), json::object()}}}), none},
  };
  for (const auto& [document, expected] : table) {
    EXPECT_EQ(failure<Asset>(document), expected) << document;
  }
}

TEST(AssetTest, malformedRenditionsAreDroppedAndTheRestSortedSmallestFirst) {
  const auto asset = parse<Asset>(with(
      image, {{"renditions",
               {sized(1200, 800), with(rendition, {{"url", ""}}), sized(640.5, 1), sized(1e30, 1),
                with(rendition, {{"url", "http://h/a b"}}), sized(300.0, 200), sized(600, 400),
                sized("600", 400), sized(600, true), with(rendition, {{"url", absent}})}}}));
  EXPECT_EQ(sizes(*asset), "300x200 600x400 1200x800 ");
  EXPECT_DOUBLE_EQ(asset->aspectRatio(), 200.0 / 300.0);
  const json twins = {with(sized(2, 2), {{"url", "a"}}), with(sized(2, 2), {{"url", "b"}}),
                      sized(1, 1)};
  EXPECT_EQ(parse<Asset>(with(image, {{"renditions", twins}}))->renditions[2].url,
            *URL::parse("b"));
}

TEST(AssetTest, aspectRatioDividesAsFloatingPointDoes) {
  const auto ratio = [](int width, int height) {
    return parse<Asset>(with(image, {{"renditions", json::array({sized(width, height)})}}))
        ->aspectRatio();
  };
  EXPECT_EQ(ratio(0, 5), std::numeric_limits<double>::infinity());
  EXPECT_TRUE(std::isnan(ratio(0, 0)));
  EXPECT_EQ(ratio(-2, 1), -0.5);
  Asset bare = *parse<Asset>(image);
  bare.renditions.clear();
  EXPECT_EQ(bare.aspectRatio(), 0);
}

TEST(AssetTest, aHundredThousandRenditionsOfMixedSizesAreOrderedWhereTheyCompare) {
  std::mt19937 random(7);
  json list = json::array();
  for (int i = 0; i < 100'000; ++i) {
    list.push_back(with(sized(random() % 300, random() % 300), {{"url", std::to_string(i)}}));
  }
  const auto asset = parse<Asset>(with(image, {{"renditions", list}}));
  ASSERT_EQ(asset->renditions.size(), 100'000U);
  for (std::size_t i = 1; i < asset->renditions.size(); ++i) {
    const auto place = [](const Asset::Rendition& each) {
      return std::tuple(each.width, each.height, std::stoi(each.url.absoluteString()));
    };
    ASSERT_LT(place(asset->renditions[i - 1]), place(asset->renditions[i]));
  }
}

TEST(AssetTest, theNarrowestRenditionWithEnoughPixelsIsChosenElseTheWidest) {
  const URL url = *URL::parse("http://h/");
  Asset asset{};
  for (const auto& [width, height] : {std::pair(300, 900), {600, 400}, {600, 500}, {1200, 800}}) {
    asset.renditions.emplace_back(url, width, height);
  }
  struct Row {
    double width;
    double pixelDensity;
    std::size_t expected;
  };
  for (const Row& row : {Row{0, 1, 0},
                         {-5, 2, 0},
                         {300, 1, 0},
                         {300.5, 1, 1},
                         {300, 2, 1},
                         {600, 1.5, 3},
                         {1200, 3, 3},
                         {1e300, 1e300, 3},
                         {NAN, 1, 3}}) {
    EXPECT_EQ(renditionFor(asset, row.width, row.pixelDensity), &asset.renditions[row.expected])
        << row.width << " " << row.pixelDensity;
  }
  asset.renditions.clear();
  EXPECT_EQ(renditionFor(asset, 1), nullptr);
}

TEST(AuthorTest, entriesWithoutANameAreDropped) {
  const auto document = JSONDocument::parse(
      R"({"authors":[{"name":"A"},{"jobTitle":"Editor"},{"name":1},{"name":"B","jobTitle":"Editor"}]})");
  const auto authors =
      Author::parseList(document.value().object().value().objects("authors").value());
  ASSERT_EQ(authors.size(), 2U);
  EXPECT_EQ(authors[0].name, "A");
  EXPECT_EQ(authors[0].jobTitle, std::nullopt);
  EXPECT_EQ(authors[1].name, "B");
  EXPECT_EQ(authors[1].jobTitle, "Editor");
}

TEST(SponsorTest, failuresNameTheOffendingValues) {
  const json good = {{"image", "https://s.example/logo.png"}, {"campaignId", "c"}};
  expectRequired<Sponsor>(good, "parsingFailed: failed to parse JSON into sponsor");
  const std::string invalid = "parsingFailed: invalid url [ ";
  const std::pair<json, std::string> table[] = {
      {with(good, {{"image", ""}}), invalid + " ] for sponsor with url nil"},
      {with(good, {{"image", "a b"}, {"url", "x"}}), invalid + "a b ] for sponsor with url \"x\""},
      {with(good, {{"image", "%"}, {"url", {1, nullptr}}}),
       invalid + "% ] for sponsor with url [1,null]"},
  };
  for (const auto& [document, expected] : table) EXPECT_EQ(failure<Sponsor>(document), expected);
}

TEST(SponsorTest, anUnusableLinkOrNameIsAbsent) {
  const json good = {
      {"image", "https://s.example/logo.png"}, {"campaignId", "c"}, {"byline", "by"}};
  const std::pair<json, bool> table[] = {{"https://s.example/", true},
                                         {"page", true},
                                         {"", false},
                                         {"a b", false},
                                         {4, false},
                                         {absent, false}};
  for (const auto& [url, there] : table) {
    const auto sponsor = *parse<Sponsor>(with(good, {{"url", url}, {"name", 7}}));
    EXPECT_EQ(sponsor->url().has_value(), there) << url;
    EXPECT_EQ(sponsor->name(), std::nullopt);
    EXPECT_EQ(sponsor->byline(), "by");
  }
}

}  // namespace
}  // namespace paperloom::test
