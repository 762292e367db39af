#include <gtest/gtest.h>

#include <functional>

#include "apps/reader/RecordJSON.h"
#include "paperloom/model/ArticleParser.h"
#include "paperloom/model/DocumentParsers.h"
#include "tests/support/UnreadKey.h"

namespace paperloom {
namespace {

using JSON = reader::JSON;

// Documents in which every value names its own key, and the records that they must become.

constexpr std::string_view streamDocument = R"({
  "sections": [
    {"uid": "uid", "pageId": "pageId", "previews": [
      {"headline": "headline", "url": "url", "qrvId": "qrvId", "type": "videoArticle",
       "cardType": "bespoke", "videoDuration": "videoDuration", "premium": true, "sponsored": false,
       "authors": [{"name": "name", "jobTitle": "jobTitle"}, {"name": "second"}],
       "cardAsset": {
         "type": "video", "videoEmbedId": "asset.videoEmbedId",
         "videoDuration": "asset.videoDuration", "caption": "caption", "copyright": "copyright",
         "altText": "altText", "renditions": [{"url": "larger", "width": 50, "height": 30},
                                              {"url": "rendition.url", "width": 40, "height": 10}]
       }},
      {"headline": "two.headline", "url": "two.url", "qrvId": "two.qrvId", "sponsored": true}
    ]},
    {"uid": "second", "previews": []}
  ],
  "sponsoredContent": [{"headline": "sponsored.headline", "url": "sponsored.url",
                        "qrvId": "sponsored.qrvId", "cardType": "advert", "type": "liveArticle"}],
  "sectionMetaData": [
    {"uid": "uid", "displayName": "displayName", "primaryColour": "primaryColour",
     "secondaryColour": "secondaryColour", "accessibleColour": "accessibleColour",
     "customization": "enabledByDefault", "displayAsCarousel": true, "showSponsored": false,
     "fallbackCardsOverride": ["override", "two"],
     "premiumFallbackCardsOverride": ["premiumOverride"]},
    {"uid": "second", "displayName": "n", "primaryColour": "p", "secondaryColour": "s",
     "accessibleColour": "a", "customization": "alwaysEnabled", "showSponsored": true}
  ],
  "globalMetaData": {
    "premiumPrimaryColour": "premiumPrimary", "premiumSecondaryColour": "premiumSecondary",
    "premiumAccessibleColour": "premiumAccessible",
    "premiumLabelColourOnNormalBackground": "onNormal",
    "premiumLabelColourOnSecondaryBackground": "onSecondary",
    "fallbackCards": ["fallback"], "premiumFallbackCards": ["premiumFallback"]}
})";

constexpr std::string_view streamRecord = R"({
  "premiumColourSet": {
    "primaryColourHex": "premiumPrimary",
    "secondaryColourHex": "premiumSecondary",
    "accessibleColourHex": "premiumAccessible"},
  "premiumLabelColourSet": {
    "labelColourOnNormalBackground": "onNormal",
    "labelColourOnSecondaryBackground": "onSecondary"},
  "sections": [
    {"uid": "uid",
     "articleHeaders": [
       {"identifier": "qrvId",
        "URL": "url",
        "articleType": "videoArticle",
        "headline": "headline",
        "authors": [{"name": "name", "jobTitle": "jobTitle"}, {"name": "second", "jobTitle": null}],
        "isPremium": true,
        "cardType": "bespoke",
        "cardAsset": {
          "type": "video",
          "caption": "caption",
          "copyright": "copyright",
          "altText": "altText",
          "videoEmbedId": "asset.videoEmbedId",
          "videoDuration": "asset.videoDuration",
          "renditions": [{"url": "rendition.url", "width": 40, "height": 10},
                         {"url": "larger", "width": 50, "height": 30}],
          "aspectRatio": 0.25},
        "videoDuration": "videoDuration",
        "sponsored": false},
       {"identifier": "two.qrvId", "URL": "two.url", "articleType": "unknown",
        "headline": "two.headline", "authors": [], "isPremium": false, "cardType": "small",
        "cardAsset": null, "videoDuration": null, "sponsored": true}],
     "pageID": "pageId"},
    {"uid": "second", "articleHeaders": [], "pageID": null}],
  "sponsoredArticles": [
    {"identifier": "sponsored.qrvId", "URL": "sponsored.url", "articleType": "liveArticle",
     "headline": "sponsored.headline", "authors": [], "isPremium": false, "cardType": "advert",
     "cardAsset": null, "videoDuration": null, "sponsored": false}],
  "appMetadata": {
    "sectionMetadata": [
      {"uid": "uid",
       "displayName": "displayName",
       "primaryColourHex": "primaryColour",
       "secondaryColourHex": "secondaryColour",
       "customization": "enabledByDefault",
       "accessibleColourHex": "accessibleColour",
       "displayAsCarousel": true,
       "fallbackCards": {"standard": ["override", "two"], "premium": ["premiumOverride"]},
       "showSponsored": false},
      {"uid": "second", "displayName": "n", "primaryColourHex": "p", "secondaryColourHex": "s",
       "customization": "alwaysEnabled", "accessibleColourHex": "a", "displayAsCarousel": false,
       "fallbackCards": null, "showSponsored": true}],
    "globalMetadata": {
      "premiumPrimaryColour": "premiumPrimary",
      "premiumSecondaryColour": "premiumSecondary",
      "premiumAccessibleColour": "premiumAccessible",
      "premiumLabelColourOnNormalBackground": "onNormal",
      "premiumLabelColourOnSecondaryBackground": "onSecondary",
      "fallbackCards": {"standard": ["fallback"], "premium": ["premiumFallback"]}}}
})";

constexpr std::string_view articleDocument = R"({
  "headline": " headline\n", "type": "commentArticle", "datePublished": "2018-03-01T14:05:09Z",
  "authors": [{"jobTitle": "nameless"}, {"name": "name", "jobTitle": "jobTitle"}],
  "premium": false, "starRating": 4, "pageId": "pageId", "websiteUrl": "websiteUrl",
  "callToAction": "none", "adZone": "adZone", "businessSegment": "businessSegment",
  "leadAsset": {"type": "image", "caption": "lead.caption", "videoEmbedId": "lead.videoEmbedId",
                "renditions": [{"url": "lead.url", "width": 20, "height": 10}]},
  "body": [
    {"type": "heading", "level": 3, "text": "heading.text"},
    {"type": "text", "text": "text.text"},
    {"type": "image", "altText": "image.altText",
     "renditions": [{"url": "image.url", "width": 4, "height": 1}, {"url": "", "width": 1, "height": 1}]},
    {"type": "video", "videoEmbedId": "video.videoEmbedId",
     "renditions": [{"url": "video.url", "width": 1, "height": 2}]},
    {"type": "youtube", "videoEmbedId": "youtube.videoEmbedId"},
    {"type": "tweet", "tweetId": "tweetId"},
    {"type": "particle", "embedSrc": "embedSrc", "text": "particle.text"},
    {"type": "livepost", "time": "2019-04-02T15:06:10+01:00"},
    {"type": "quiz"}
  ],
  "sponsored": true,
  "sponsor": {"name": "sponsor.name", "byline": "byline", "image": "sponsor.image",
              "url": "sponsor.url", "campaignId": "campaignId"},
  "registerWall": {"headline": "wall.headline", "dismissType": "soft", "primaryColour": "primary",
                   "secondaryColour": "secondary", "accessibleColour": "accessible",
                   "registerButtonText": "registerButtonText", "channel": "channel",
                   "loginButtonText": "loginButtonText"}
})";

constexpr std::string_view articleRecord = R"({
  "headline": "headline",
  "type": "commentArticle",
  "authors": [{"name": "name", "jobTitle": "jobTitle"}],
  "publishedTime": "2018-03-01T14:05:09Z",
  "isPremium": false,
  "leadContent": {"case": "image", "asset": {
    "type": "image", "caption": "lead.caption", "copyright": null, "altText": null,
    "videoEmbedId": "lead.videoEmbedId", "videoDuration": null,
    "renditions": [{"url": "lead.url", "width": 20, "height": 10}], "aspectRatio": 0.5}},
  "contents": [
    {"case": "heading", "style": 3, "text": "heading.text"},
    {"case": "body", "text": "text.text"},
    {"case": "image", "asset": {
      "type": "image", "caption": null, "copyright": null, "altText": "image.altText",
      "videoEmbedId": null, "videoDuration": null,
      "renditions": [{"url": "image.url", "width": 4, "height": 1}], "aspectRatio": 0.25}},
    {"case": "video", "asset": {
      "type": "video", "caption": null, "copyright": null, "altText": null,
      "videoEmbedId": "video.videoEmbedId", "videoDuration": null,
      "renditions": [{"url": "video.url", "width": 1, "height": 2}], "aspectRatio": 2.0}},
    {"case": "youtube", "embedID": "youtube.videoEmbedId"},
    {"case": "tweet", "embedId": "tweetId"},
    {"case": "particle", "particle": {"embedSrc": "embedSrc", "text": "particle.text"}},
    {"case": "livepost", "time": "2019-04-02T14:06:10Z"},
    {"case": "unknown"}],
  "rating": 4,
  "pageID": "pageId",
  "sponsored": true,
  "sponsor": {
    "name": "sponsor.name",
    "byline": "byline",
    "imageUrl": "sponsor.image",
    "url": "sponsor.url",
    "campaignId": "campaignId"},
  "websiteURL": "websiteUrl",
  "callToAction": "none",
  "adZone": "adZone",
  "businessSegment": "businessSegment",
  "registrationWallModel": {
    "headline": "wall.headline",
    "dismissType": "soft",
    "wallDecorationColours": {
      "primaryColourHex": "primary",
      "secondaryColourHex": "secondary",
      "accessibleColourHex": "accessible"},
    "registerButtonText": "registerButtonText",
    "loginButtonText": "loginButtonText",
    "channel": "channel"},
  "wallType": {"case": "regWall", "headline": "wall.headline", "dismissType": "soft",
               "wallDecorationColours": {"primaryColourHex": "primary",
                                         "secondaryColourHex": "secondary",
                                         "accessibleColourHex": "accessible"},
               "registerButtonText": "registerButtonText", "loginButtonText": "loginButtonText",
               "channel": "channel"},
  "canInjectOutbrain": false
})";

template <class Parser>
JSON record(const Parser& parser, std::string document) {
  const auto result = parser.parse(Data(std::move(document)));
  if (result) return reader::toJSON(**result);
  return asPaperloomError(result.error()).details();
}

void expectSame(const JSON& record, const JSON& expected) {
  EXPECT_EQ(record.dump(), expected.dump()) << JSON::diff(expected, record).dump(1);
}

TEST(GoldenRecordTests, everyValueLandsInTheFieldOfItsKey) {
  const JSON stream = JSON::parse(streamRecord);
  expectSame(record(*makeStreamParser(), std::string(streamDocument)), stream);
  expectSame(record(*makeConfigParser(), std::string(streamDocument)), stream["appMetadata"]);
  expectSame(record(ArticleParser(), std::string(articleDocument)), JSON::parse(articleRecord));
}

TEST(GoldenRecordTests, aKeyThatNobodyReadsChangesNoRecordWhateverItsValue) {
  const auto expectUnchanged = [](const auto& parser, std::string_view document) {
    const JSON expected = record(parser, std::string(document));
    for (const std::string_view value : test::anyValues) {
      for (std::string& text : test::withMember(document, "\"~\":" + std::string(value))) {
        const JSON changed = record(parser, text);
        ASSERT_EQ(changed, expected) << value << JSON::diff(expected, changed) << text;
      }
    }
  };
  expectUnchanged(*makeStreamParser(), streamDocument);
  expectUnchanged(*makeConfigParser(), streamDocument);
  expectUnchanged(ArticleParser(), articleDocument);
}

}  // namespace
}  // namespace paperloom
