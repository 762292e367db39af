#include "paperloom/model/ArticleHeader.h"

namespace paperloom {
namespace {

std::optional<Asset> cardAssetOf(const JSONObject& json) {
  const auto object = json.object("cardAsset");
  if (!object) return std::nullopt;
  auto asset = Asset::parse(*object);
  if (!asset) return std::nullopt;
  return std::move(*asset);
}

}  // namespace

Result<std::shared_ptr<const ArticleHeaderProtocol>> ArticleHeader::parse(const JSONObject& json) {
  auto headline = json.string("headline");
  const auto urlText = json.stringView("url");
  auto identifier = json.string("qrvId");
  if (!headline || !urlText || !identifier) {
    return parsingFailed("failed to parse JSON into ArticleHeader");
  }
  auto url = paperloom::URL::parse(*urlText);
  if (!url) {
    return parsingFailed("invalid url [ " + std::string(*urlText) +
                         " ] for article with identifier " + *identifier);
  }
  return std::make_shared<const ArticleHeader>(
      Fields{.identifier = std::move(*identifier),
             .URL = std::move(*url),
             .articleType = fromRawValue<ArticleType>(json.stringView("type").value_or(""))
                                .value_or(ArticleType::unknown),
             .headline = std::move(*headline),
             .authors = Author::parseList(json.objects("authors").value_or(JSONObjectList())),
             .isPremium = json.boolean("premium").value_or(false),
             .cardType = fromRawValue<CardType>(json.stringView("cardType").value_or(""))
                             .value_or(CardType::small),
             .cardAsset = cardAssetOf(json),
             .videoDuration = json.string("videoDuration"),
             .sponsored = json.boolean("sponsored").value_or(false)});
}

}  // namespace paperloom
