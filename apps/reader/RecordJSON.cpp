#include "apps/reader/RecordJSON.h"

#include <cmath>

#include "paperloom/platform/DateFormatter.h"

namespace paperloom::reader {
namespace {

// One function a record; as members they find each other whatever their order.
struct Writer {
  static JSON json(const std::string& text) { return text; }
  static JSON json(std::int64_t number) { return number; }
  static JSON json(const URL& url) { return url.absoluteString(); }

  static JSON json(const ColourSet& colours) {
    return {{"primaryColourHex", colours.primaryColourHex},
            {"secondaryColourHex", colours.secondaryColourHex},
            {"accessibleColourHex", colours.accessibleColourHex}};
  }

  static JSON json(const LabelColourSet& colours) {
    return {{"labelColourOnNormalBackground", colours.labelColourOnNormalBackground},
            {"labelColourOnSecondaryBackground", colours.labelColourOnSecondaryBackground}};
  }

  template <class T>
  static JSON orNull(const std::optional<T>& value) {
    return value ? json(*value) : JSON();
  }

  template <class T>
  static JSON orNull(const std::shared_ptr<const T>& record) {
    return record ? json(*record) : JSON();
  }

  template <class List>
  static JSON list(const List& items) {
    JSON array = JSON::array();
    for (const auto& item : items) {
      if constexpr (requires { *item; }) {
        array.push_back(json(*item));
      } else {
        array.push_back(json(item));
      }
    }
    return array;
  }

  static JSON finite(double number) { return std::isfinite(number) ? JSON(number) : JSON(); }

  static JSON json(const Asset& asset) {
    JSON renditions = JSON::array();
    for (const Asset::Rendition& rendition : asset.renditions) {
      renditions.push_back({{"url", rendition.url.absoluteString()},
                            {"width", rendition.width},
                            {"height", rendition.height}});
    }
    return {{"type", rawValue(asset.type)},
            {"caption", orNull(asset.caption)},
            {"copyright", orNull(asset.copyright)},
            {"altText", orNull(asset.altText)},
            {"videoEmbedId", orNull(asset.videoEmbedId)},
            {"videoDuration", orNull(asset.videoDuration)},
            {"renditions", std::move(renditions)},
            {"aspectRatio", finite(asset.aspectRatio())}};
  }

  static JSON json(const Author& author) {
    return {{"name", author.name}, {"jobTitle", orNull(author.jobTitle)}};
  }

  static JSON json(const SponsorProtocol& sponsor) {
    return {{"name", orNull(sponsor.name())},
            {"byline", orNull(sponsor.byline())},
            {"imageUrl", json(sponsor.imageUrl())},
            {"url", orNull(sponsor.url())},
            {"campaignId", sponsor.campaignId()}};
  }

  static JSON json(const RegistrationWallProtocol& wall) {
    return {{"headline", wall.headline()},
            {"dismissType", rawValue(wall.dismissType())},
            {"wallDecorationColours", json(wall.wallDecorationColours())},
            {"registerButtonText", wall.registerButtonText()},
            {"loginButtonText", wall.loginButtonText()},
            {"channel", wall.channel()}};
  }

  static JSON json(const FallbackCardProtocol& cards) {
    return {{"standard", cards.standard()}, {"premium", cards.premium()}};
  }

  static JSON json(const GlobalMetadataProtocol& metadata) {
    return {
        {"premiumPrimaryColour", metadata.premiumPrimaryColour()},
        {"premiumSecondaryColour", metadata.premiumSecondaryColour()},
        {"premiumAccessibleColour", metadata.premiumAccessibleColour()},
        {"premiumLabelColourOnNormalBackground", metadata.premiumLabelColourOnNormalBackground()},
        {"premiumLabelColourOnSecondaryBackground",
         metadata.premiumLabelColourOnSecondaryBackground()},
        {"fallbackCards", orNull(metadata.fallbackCards())}};
  }

  static JSON json(const SectionMetadataProtocol& metadata) {
    return {{"uid", metadata.uid()},
            {"displayName", metadata.displayName()},
            {"primaryColourHex", metadata.primaryColourHex()},
            {"secondaryColourHex", metadata.secondaryColourHex()},
            {"customization", caseName(metadata.customization())},
            {"accessibleColourHex", metadata.accessibleColourHex()},
            {"displayAsCarousel", metadata.displayAsCarousel()},
            {"fallbackCards", orNull(metadata.fallbackCards())},
            {"showSponsored", metadata.showSponsored()}};
  }

  static JSON json(const ArticleHeaderProtocol& header) {
    return {{"identifier", header.identifier()},
            {"URL", json(header.URL())},
            {"articleType", rawValue(header.articleType())},
            {"headline", header.headline()},
            {"authors", list(header.authors())},
            {"isPremium", header.isPremium()},
            {"cardType", rawValue(header.cardType())},
            {"cardAsset", orNull(header.cardAsset())},
            {"videoDuration", orNull(header.videoDuration())},
            {"sponsored", header.sponsored()}};
  }

  static JSON json(const SectionProtocol& section) {
    return {{"uid", section.uid()},
            {"articleHeaders", list(section.articleHeaders())},
            {"pageID", orNull(section.pageID())}};
  }

  // The payload of each kind of block.
  struct BlockPayload {
    using Item = ArticleContentItem;
    JSON operator()(const Item::Heading& block) const {
      return {{"style", rawValue(block.style)}, {"text", block.text}};
    }
    JSON operator()(const Item::Body& block) const { return {{"text", block.text}}; }
    JSON operator()(const Item::Blockquote& block) const { return {{"text", block.text}}; }
    JSON operator()(const Item::Embed& block) const { return {{"content", block.content}}; }
    JSON operator()(const Item::Image& block) const { return {{"asset", json(block.asset)}}; }
    JSON operator()(const Item::Video& block) const { return {{"asset", json(block.asset)}}; }
    JSON operator()(const Item::Youtube& block) const { return {{"embedID", block.embedID}}; }
    JSON operator()(const Item::Tweet& block) const { return {{"embedId", block.embedId}}; }
    JSON operator()(const Item::Particle& block) const {
      return {{"particle", JSON(block.particle)}};
    }
    JSON operator()(const Item::Livepost& block) const { return {{"time", json(block.time)}}; }
    JSON operator()(const Item::Unknown&) const { return JSON::object(); }
  };

  static JSON json(const ArticleContentItem& item) {
    JSON object = {{"case", item.caseName()}};
    object.update(std::visit(BlockPayload(), item.value));
    return object;
  }

  static JSON json(const WallType& wall) {
    JSON object = {{"case", wall.caseName()}};
    if (const auto* registration = std::get_if<WallType::RegWall>(&wall.value)) {
      object.update(json(*registration->wall));
    }
    return object;
  }

  // Null for an instant that the form cannot name: it has four digits for the year.
  static JSON json(Date date) {
    const std::string text = DateFormatter::shared().string(date);
    const bool isExact =
        DateFormatter::shared().date(text) == std::chrono::floor<std::chrono::seconds>(date);
    return isExact ? JSON(text) : JSON();
  }

  static JSON json(const AppMetadataProtocol& metadata) {
    return {{"sectionMetadata", list(metadata.sectionMetadata())},
            {"globalMetadata", json(*metadata.globalMetadata())}};
  }

  static JSON json(const StreamProtocol& stream) {
    return {{"premiumColourSet", orNull(stream.premiumColourSet())},
            {"premiumLabelColourSet", orNull(stream.premiumLabelColourSet())},
            {"sections", list(stream.sections())},
            {"sponsoredArticles", list(stream.sponsoredArticles())},
            {"appMetadata", json(*stream.appMetadata())}};
  }

  static JSON json(const ArticleProtocol& article) {
    return {{"headline", article.headline()},
            {"type", rawValue(article.type())},
            {"authors", list(article.authors())},
            {"publishedTime", orNull(article.publishedTime())},
            {"isPremium", article.isPremium()},
            {"leadContent", json(article.leadContent())},
            {"contents", list(article.contents())},
            {"rating", orNull(article.rating())},
            {"pageID", orNull(article.pageID())},
            {"sponsored", article.sponsored()},
            {"sponsor", orNull(article.sponsor())},
            {"websiteURL", orNull(article.websiteURL())},
            {"callToAction", rawValue(article.callToAction())},
            {"adZone", article.adZone()},
            {"businessSegment", article.businessSegment()},
            {"registrationWallModel", orNull(article.registrationWallModel())},
            {"wallType", json(article.wallType())},
            {"canInjectOutbrain", article.canInjectOutbrain()}};
  }

  static JSON json(const Image& image) {
    return {{"width", image.width()}, {"height", image.height()}};
  }
};

}  // namespace

JSON toJSON(Date date) { return Writer::json(date); }
JSON toJSON(const AppMetadataProtocol& metadata) { return Writer::json(metadata); }
JSON toJSON(const StreamProtocol& stream) { return Writer::json(stream); }
JSON toJSON(const ArticleProtocol& article) { return Writer::json(article); }
JSON toJSON(const Image& image) { return Writer::json(image); }

JSON toJSON(const OfflineSet& set) {
  const auto texts = [](const std::vector<URL>& urls) {
    JSON all = JSON::array();
    for (const URL& url : urls) all.push_back(url.absoluteString());
    return all;
  };
  return {{"name", set.name},
          {"bytes", set.bytes},
          {"fetchedAt", set.isDamaged ? JSON() : toJSON(set.fetchedAt)},
          {"urls", texts(set.urls)},
          {"missing", texts(set.missing)},
          {"damaged", set.isDamaged}};
}

void addProvenance(JSON& json, const Provenance& provenance) {
  json["source"] = sourceName(provenance);
  json["age"] = provenance.age ? JSON(provenance.age->count()) : JSON();
  json["fetchedAt"] = provenance.fetchedAt ? toJSON(*provenance.fetchedAt) : JSON();
}

std::string dump(const JSON& json, bool oneLine) {
  return json.dump(oneLine ? -1 : 2, ' ', false, JSON::error_handler_t::replace);
}

}  // namespace paperloom::reader
