#include "paperloom/model/ArticleHeader.h"

#include "paperloom/model/internal/Reading.h"

namespace paperloom {
namespace {

std::optional<Asset> cardAssetOf(const JSONObject& json) {
  const auto object = json.object("cardAsset");
  if (!object) return std::nullopt;
  auto asset = Asset::parse(*object);
  if (!asset) {
    leaveOut(*object, "the card has no picture");
    return std::nullopt;
  }
  return std::move(*asset);
}

}  // namespace

Result<std::shared_ptr<const ArticleHeaderProtocol>> ArticleHeader::parse(const JSONObject& json) {
  auto headline = json.string("headline");
  const auto urlText = json.stringView("url");
  auto identifier = json.string("qrvId");
  if (!headline || !urlText || !identifier) {
    return parsingFailed(json, "failed to parse JSON into ArticleHeader");
  }
  auto url = paperloom::URL::parse(*urlText);
  if (!url) {
    refuse(json, "url", rule::invalidURL);
    return parsingFailed(json, "invalid url [ " + std::string(*urlText) +
                                   " ] for article with identifier " + *identifier);
  }
  return std::make_shared<const ArticleHeader>(
      Fields{.identifier = std::move(*identifier),
             .URL = std::move(*url),
             .articleType = caseUnder<ArticleType>(json, "type").value_or(ArticleType::unknown),
             .headline = std::move(*headline),
             .authors = Author::parseList(json.objects("authors").value_or(JSONObjectList())),
             .isPremium = json.boolean("premium").value_or(false),
             .cardType = caseUnder<CardType>(json, "cardType").value_or(CardType::small),
             .cardAsset = cardAssetOf(json),
             .videoDuration = json.string("videoDuration"),
             .sponsored = json.boolean("sponsored").value_or(false)});
}

}  // namespace paperloom
