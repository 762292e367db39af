#include "paperloom/model/Article.h"

#include <gtest/gtest.h>

#include "paperloom/model/ArticleHeader.h"
#include "tests/model/Documents.h"

namespace paperloom::test {
namespace {

const json headlineOnly = {{"headline", "Title"}};
const json sponsor = {{"image", "https://s.example/logo.png"}, {"campaignId", "c"}};

TEST(ArticleTest, failuresComeFromHeadlineSponsorAndWallInThisOrder) {
  const std::string own = "parsingFailed: failed to parse JSON into article";
  const std::string noSponsor = "parsingFailed: Sponsored article without sponsor info";
  const std::string badSponsor = "parsingFailed: failed to parse JSON into sponsor";
  const std::string badWall = "parsingFailed: failed to parse JSON into reg wall";
  const json broken = json::object();
  const std::pair<json, std::string> table[] = {
      {json::object(), own},
      {{{"headline", 1}, {"sponsored", true}}, own},
      {with(headlineOnly, {{"sponsored", true}, {"registerWall", broken}}), noSponsor},
      {with(headlineOnly, {{"sponsored", true}, {"sponsor", "s"}}), noSponsor},
      {with(headlineOnly, {{"sponsored", true}, {"sponsor", broken}}), badSponsor},
      {with(headlineOnly, {{"sponsored", true}, {"sponsor", sponsor}, {"registerWall", broken}}),
       badWall},
      {with(headlineOnly, {{"sponsored", true}, {"sponsor", sponsor}}), "parsed"},
      {with(headlineOnly, {{"sponsored", "true"}, {"sponsor", broken}}), "parsed"},
      {with(headlineOnly, {{"registerWall", broken}}), badWall},
      {with(headlineOnly, {{"registerWall", "wall"}}), "parsed"},
      {with(headlineOnly, {{"registerWall", wall}}), "parsed"},
  };
  for (const auto& [document, expected] : table) {
    EXPECT_EQ(failure<Article>(document), expected) << document;
  }
  EXPECT_EQ(parse<Article>(with(headlineOnly, {{"sponsor", sponsor}}))->sponsor(), nullptr);
}

TEST(ArticleTest, everyKindOfWhiteSpaceAroundTheHeadlineIsTrimmed) {
  const std::pair<const char*, const char*> table[] = {
      {"\t\n\v\f\r A\u00A0B \u0085\u2028\u2029", "A\u00A0B"},
      {"\u1680\u2000\u2001\u2002\u2003\u2004\u2005\u202F\u205F\u3000A", "A"},
      {"A\u3000\u2006\u2007\u2008\u2009\u200A ", "A"},
      {" \u00A0\n ", ""},
      {"", ""},
      {"\u200BA\u200B", "\u200BA\u200B"},  // a zero width space is none
      {"\u00E9", "\u00E9"},
      {"\U0001F4F0 \u0420", "\U0001F4F0 \u0420"},  // ends in the byte of a no-break space
  };
  for (const auto& [text, trimmed] : table) {
    EXPECT_EQ(parse<Article>({{"headline", text}})->headline(), trimmed) << text;
  }
}

TEST(ArticleTest, optionalValuesCountOnlyWithTheirTypeAndHaveDefaults) {
  const json bad = {{"headline", "h"},
                    {"type", "opinionArticle"},
                    {"authors", "A"},
                    {"datePublished", "01/03/2018"},
                    {"premium", "yes"},
                    {"body", {{{"type", "text"}, {"text", "a"}}, 1}},
                    {"starRating", "4"},
                    {"pageId", 1},
                    {"websiteUrl", "not a url"},
                    {"callToAction", 1},
                    {"adZone", nullptr},
                    {"businessSegment", false}};
  for (const json& document : {headlineOnly, bad}) {
    const auto article = parse<Article>(document);
    EXPECT_EQ(article->type(), ArticleType::unknown);
    EXPECT_TRUE(article->authors().empty() && article->contents().empty());
    EXPECT_FALSE(article->publishedTime() || article->rating() || article->pageID() ||
                 article->websiteURL() || article->sponsor() || article->registrationWallModel());
    EXPECT_FALSE(article->isPremium() || article->sponsored());
    EXPECT_EQ(article->callToAction(), CallToAction::none);
    EXPECT_EQ(article->adZone() + article->businessSegment(), "");
  }
}

TEST(ArticleTest, kindsAreWhatHostsCallThem) {
  EXPECT_EQ(rawValue(ArticleType::standard), "standardArticle");
  EXPECT_EQ(rawValue(ArticleType::video), "videoArticle");
  EXPECT_EQ(rawValue(ArticleType::live), "liveArticle");
  EXPECT_EQ(rawValue(CallToAction::purchase), "purchase");
  EXPECT_EQ(rawValue(CardType::medium), "medium");
  EXPECT_EQ(rawValue(CardType::bespoke), "bespoke");
  EXPECT_EQ(rawValue(WallDismissType::hard), "hard");
}

TEST(ArticleTest, theLeadIsTheLeadAssetOrUnknown) {
  const json video = with(image, {{"type", "video"}});
  const std::pair<json, const char*> table[] = {
      {image, "image"},    {with(video, {{"videoEmbedId", "v"}}), "video"},
      {video, "unknown"},  {"image", "unknown"},
      {absent, "unknown"},
  };
  for (const auto& [lead, name] : table) {
    const auto article = parse<Article>(with(headlineOnly, {{"leadAsset", lead}}));
    EXPECT_EQ(article->leadContent().caseName(), name) << lead;
  }
}

TEST(ArticleTest, wallAndOutbrainFollowCallToActionWallPremiumAndSponsor) {
  struct Row {
    json callToAction, wall, premium, sponsored;
    const char* wallType;
    bool outbrain;
  };
  const Row table[] = {
      {absent, absent, false, false, "none", true},
      {"none", absent, true, false, "none", false},
      {"none", absent, false, true, "none", false},
      {"none", wall, false, false, "regWall", false},
      {"purchase", wall, false, false, "payWall", false},
      {"loginOrPurchase", absent, false, false, "payWall", false},
      {"Purchase", absent, false, false, "none", true},
  };
  for (const Row& row : table) {
    const auto article = parse<Article>(with(headlineOnly, {{"callToAction", row.callToAction},
                                                            {"registerWall", row.wall},
                                                            {"premium", row.premium},
                                                            {"sponsored", row.sponsored},
                                                            {"sponsor", sponsor}}));
    EXPECT_EQ(article->wallType().caseName(), row.wallType) << row.callToAction << row.wall;
    EXPECT_EQ(article->canInjectOutbrain(), row.outbrain) << row.premium << row.sponsored;
  }
}

TEST(ArticleTest, theWallCanBeReplacedAndTheWallTypeFollows) {
  auto article = *parse<Article>(with(headlineOnly, {{"registerWall", wall}}));
  const WallType before = article.wallType();
  EXPECT_EQ(before, (WallType{WallType::RegWall{*parse<RegistrationWall>(wall)}}));
  article.setRegistrationWallModel(*parse<RegistrationWall>(with(wall, {{"channel", "sport"}})));
  EXPECT_NE(article.wallType(), before);
  article.setRegistrationWallModel(nullptr);
  EXPECT_EQ(article.wallType(), WallType{WallType::None{}});
  EXPECT_NE(article.wallType(), WallType{WallType::PayWall{}});
  EXPECT_TRUE(article.canInjectOutbrain());
}

TEST(RegistrationWallTest, everyValueIsRequired) {
  const std::string text = "parsingFailed: failed to parse JSON into reg wall";
  expectRequired<RegistrationWall>(wall, text);
  EXPECT_EQ(failure<RegistrationWall>(with(wall, {{"dismissType", "hard"}})), "parsed");
  EXPECT_EQ(failure<RegistrationWall>(with(wall, {{"dismissType", "Soft"}})), text);
}

TEST(RegistrationWallTest, wallsAreEqualWhenEveryFieldIs) {
  const auto one = *parse<RegistrationWall>(wall);
  EXPECT_TRUE(one->isEqual(**parse<RegistrationWall>(wall)));
  for (const auto& [key, value] : wall.items()) {
    EXPECT_FALSE(one->isEqual(**parse<RegistrationWall>(with(wall, {{key.c_str(), "hard"}}))))
        << key;
  }
}

}  // namespace
}  // namespace paperloom::test
