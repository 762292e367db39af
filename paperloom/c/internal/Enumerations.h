#pragma once

#include "paperloom/c/internal/Text.h"
#include "paperloom/c/paperloom.h"
#include "paperloom/model/ArticleContentItem.h"
#include "paperloom/model/ArticleHeader.h"
#include "paperloom/model/ArticleType.h"
#include "paperloom/model/ColourSet.h"
#include "paperloom/model/RegistrationWall.h"
#include "paperloom/model/SectionMetaData.h"
#include "paperloom/model/WallType.h"
#include "paperloom/network/Provenance.h"

namespace paperloom::c {

// The library's enumerations by the values that C has for them, which hold whatever becomes of the
// order of the library's own.

inline enum paperloom_customization enumerator(SectionCustomization customization) {
  switch (customization) {
    case SectionCustomization::alwaysEnabled:
      return PAPERLOOM_ALWAYS_ENABLED;
    case SectionCustomization::enabledByDefault:
      return PAPERLOOM_ENABLED_BY_DEFAULT;
    case SectionCustomization::disabledByDefault:
      return PAPERLOOM_DISABLED_BY_DEFAULT;
  }
  return PAPERLOOM_CUSTOMIZATION_NONE;
}

inline enum paperloom_article_type enumerator(ArticleType type) {
  switch (type) {
    case ArticleType::standard:
      return PAPERLOOM_ARTICLE_STANDARD;
    case ArticleType::video:
      return PAPERLOOM_ARTICLE_VIDEO;
    case ArticleType::live:
      return PAPERLOOM_ARTICLE_LIVE;
    case ArticleType::comment:
      return PAPERLOOM_ARTICLE_COMMENT;
    case ArticleType::unknown:
      break;
  }
  return PAPERLOOM_ARTICLE_UNKNOWN;
}

inline enum paperloom_card_type enumerator(CardType type) {
  switch (type) {
    case CardType::small:
      return PAPERLOOM_CARD_SMALL;
    case CardType::medium:
      return PAPERLOOM_CARD_MEDIUM;
    case CardType::bespoke:
      return PAPERLOOM_CARD_BESPOKE;
    case CardType::advert:
      return PAPERLOOM_CARD_ADVERT;
  }
  return PAPERLOOM_CARD_NONE;
}

inline enum paperloom_asset_type enumerator(Asset::Type type) {
  return type == Asset::Type::Image ? PAPERLOOM_ASSET_IMAGE : PAPERLOOM_ASSET_VIDEO;
}

inline enum paperloom_call_to_action enumerator(CallToAction call) {
  switch (call) {
    case CallToAction::loginOrPurchase:
      return PAPERLOOM_CALL_LOGIN_OR_PURCHASE;
    case CallToAction::purchase:
      return PAPERLOOM_CALL_PURCHASE;
    case CallToAction::none:
      break;
  }
  return PAPERLOOM_CALL_NONE;
}

inline enum paperloom_dismiss_type enumerator(WallDismissType type) {
  return type == WallDismissType::hard ? PAPERLOOM_DISMISS_HARD : PAPERLOOM_DISMISS_SOFT;
}

inline enum paperloom_wall_type enumerator(const WallType& wall) {
  if (std::holds_alternative<WallType::RegWall>(wall.value)) return PAPERLOOM_WALL_REGISTRATION;
  return std::holds_alternative<WallType::PayWall>(wall.value) ? PAPERLOOM_WALL_PAY
                                                               : PAPERLOOM_WALL_NONE;
}

inline enum paperloom_source enumerator(Provenance::Source source) {
  switch (source) {
    case Provenance::Source::network:
      return PAPERLOOM_SOURCE_NETWORK;
    case Provenance::Source::cache:
      return PAPERLOOM_SOURCE_CACHE;
    case Provenance::Source::revalidated:
      return PAPERLOOM_SOURCE_REVALIDATED;
    case Provenance::Source::stale:
      return PAPERLOOM_SOURCE_STALE;
    case Provenance::Source::library:
      return PAPERLOOM_SOURCE_LIBRARY;
  }
  return PAPERLOOM_SOURCE_UNKNOWN;
}

inline enum paperloom_block_kind enumerator(const ArticleContentItem& item) {
  using Item = ArticleContentItem;
  using Kind = enum paperloom_block_kind;
  struct Kinds {
    Kind operator()(const Item::Unknown&) const { return PAPERLOOM_BLOCK_UNKNOWN; }
    Kind operator()(const Item::Heading&) const { return PAPERLOOM_BLOCK_HEADING; }
    Kind operator()(const Item::Body&) const { return PAPERLOOM_BLOCK_BODY; }
    Kind operator()(const Item::Blockquote&) const { return PAPERLOOM_BLOCK_BLOCKQUOTE; }
    Kind operator()(const Item::Embed&) const { return PAPERLOOM_BLOCK_EMBED; }
    Kind operator()(const Item::Image&) const { return PAPERLOOM_BLOCK_IMAGE; }
    Kind operator()(const Item::Video&) const { return PAPERLOOM_BLOCK_VIDEO; }
    Kind operator()(const Item::Youtube&) const { return PAPERLOOM_BLOCK_YOUTUBE; }
    Kind operator()(const Item::Tweet&) const { return PAPERLOOM_BLOCK_TWEET; }
    Kind operator()(const Item::Particle&) const { return PAPERLOOM_BLOCK_PARTICLE; }
    Kind operator()(const Item::Livepost&) const { return PAPERLOOM_BLOCK_LIVEPOST; }
  };
  return std::visit(Kinds{}, item.value);
}

inline paperloom_text colourOf(const ColourSet& colours, int32_t colour) {
  switch (colour) {
    case PAPERLOOM_COLOUR_PRIMARY:
      return text(colours.primaryColourHex);
    case PAPERLOOM_COLOUR_SECONDARY:
      return text(colours.secondaryColourHex);
    case PAPERLOOM_COLOUR_ACCESSIBLE:
      return text(colours.accessibleColourHex);
    default:
      return {};
  }
}

}  // namespace paperloom::c
