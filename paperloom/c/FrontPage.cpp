// The configuration document and the stream, read from C.

#include "paperloom/c/internal/Enumerations.h"
#include "paperloom/c/internal/Records.h"
#include "paperloom/c/paperloom.h"

using namespace paperloom;
using namespace paperloom::c;

// The configuration document.

size_t paperloom_app_metadata_section_metadata_count(const paperloom_app_metadata* metadata) {
  return countOf(metadata, &AppMetadataProtocol::sectionMetadata);
}

const paperloom_section_metadata* paperloom_app_metadata_section_metadata_at(
    const paperloom_app_metadata* metadata, size_t index) {
  return partAt<paperloom_section_metadata>(metadata, &AppMetadataProtocol::sectionMetadata, index);
}

const paperloom_global_metadata* paperloom_app_metadata_global_metadata(
    const paperloom_app_metadata* metadata) {
  return partOf<paperloom_global_metadata>(metadata, &AppMetadataProtocol::globalMetadata);
}

paperloom_text paperloom_global_metadata_premium_colour(const paperloom_global_metadata* metadata,
                                                        int32_t colour) {
  using Global = GlobalMetadataProtocol;
  switch (colour) {
    case PAPERLOOM_COLOUR_PRIMARY:
      return textOf(metadata, &Global::premiumPrimaryColour);
    case PAPERLOOM_COLOUR_SECONDARY:
      return textOf(metadata, &Global::premiumSecondaryColour);
    case PAPERLOOM_COLOUR_ACCESSIBLE:
      return textOf(metadata, &Global::premiumAccessibleColour);
    default:
      return {};
  }
}

paperloom_text paperloom_global_metadata_premium_label_colour(
    const paperloom_global_metadata* metadata, int32_t background) {
  using Global = GlobalMetadataProtocol;
  switch (background) {
    case PAPERLOOM_BACKGROUND_NORMAL:
      return textOf(metadata, &Global::premiumLabelColourOnNormalBackground);
    case PAPERLOOM_BACKGROUND_SECONDARY:
      return textOf(metadata, &Global::premiumLabelColourOnSecondaryBackground);
    default:
      return {};
  }
}

const paperloom_fallback_cards* paperloom_global_metadata_fallback_cards(
    const paperloom_global_metadata* metadata) {
  return partOf<paperloom_fallback_cards>(metadata, &GlobalMetadataProtocol::fallbackCards);
}

paperloom_text paperloom_section_metadata_uid(const paperloom_section_metadata* metadata) {
  return textOf(metadata, &SectionMetadataProtocol::uid);
}

paperloom_text paperloom_section_metadata_display_name(const paperloom_section_metadata* metadata) {
  return textOf(metadata, &SectionMetadataProtocol::displayName);
}

paperloom_text paperloom_section_metadata_colour(const paperloom_section_metadata* metadata,
                                                 int32_t colour) {
  using Metadata = SectionMetadataProtocol;
  switch (colour) {
    case PAPERLOOM_COLOUR_PRIMARY:
      return textOf(metadata, &Metadata::primaryColourHex);
    case PAPERLOOM_COLOUR_SECONDARY:
      return textOf(metadata, &Metadata::secondaryColourHex);
    case PAPERLOOM_COLOUR_ACCESSIBLE:
      return textOf(metadata, &Metadata::accessibleColourHex);
    default:
      return {};
  }
}

enum paperloom_customization paperloom_section_metadata_customization(
    const paperloom_section_metadata* metadata) {
  return metadata != nullptr ? enumerator(record(metadata).customization())
                             : PAPERLOOM_CUSTOMIZATION_NONE;
}

bool paperloom_section_metadata_displays_as_carousel(const paperloom_section_metadata* metadata) {
  return valueOf(metadata, &SectionMetadataProtocol::displayAsCarousel);
}

bool paperloom_section_metadata_shows_sponsored(const paperloom_section_metadata* metadata) {
  return valueOf(metadata, &SectionMetadataProtocol::showSponsored);
}

const paperloom_fallback_cards* paperloom_section_metadata_fallback_cards(
    const paperloom_section_metadata* metadata) {
  return partOf<paperloom_fallback_cards>(metadata, &SectionMetadataProtocol::fallbackCards);
}

size_t paperloom_fallback_cards_standard_count(const paperloom_fallback_cards* cards) {
  return countOf(cards, &FallbackCardProtocol::standard);
}

paperloom_text paperloom_fallback_cards_standard_at(const paperloom_fallback_cards* cards,
                                                    size_t index) {
  return textAt(cards, &FallbackCardProtocol::standard, index);
}

size_t paperloom_fallback_cards_premium_count(const paperloom_fallback_cards* cards) {
  return countOf(cards, &FallbackCardProtocol::premium);
}

paperloom_text paperloom_fallback_cards_premium_at(const paperloom_fallback_cards* cards,
                                                   size_t index) {
  return textAt(cards, &FallbackCardProtocol::premium, index);
}

// The stream.

size_t paperloom_stream_section_count(const paperloom_stream* stream) {
  return countOf(stream, &StreamProtocol::sections);
}

const paperloom_section* paperloom_stream_section_at(const paperloom_stream* stream, size_t index) {
  return partAt<paperloom_section>(stream, &StreamProtocol::sections, index);
}

size_t paperloom_stream_sponsored_card_count(const paperloom_stream* stream) {
  return countOf(stream, &StreamProtocol::sponsoredArticles);
}

const paperloom_card* paperloom_stream_sponsored_card_at(const paperloom_stream* stream,
                                                         size_t index) {
  return partAt<paperloom_card>(stream, &StreamProtocol::sponsoredArticles, index);
}

const paperloom_app_metadata* paperloom_stream_app_metadata(const paperloom_stream* stream) {
  return partOf<paperloom_app_metadata>(stream, &StreamProtocol::appMetadata);
}

paperloom_text paperloom_stream_premium_colour(const paperloom_stream* stream, int32_t colour) {
  const auto colours = stream != nullptr ? addressOf(record(stream).premiumColourSet()) : nullptr;
  return colours != nullptr ? colourOf(*colours, colour) : paperloom_text{};
}

paperloom_text paperloom_stream_premium_label_colour(const paperloom_stream* stream,
                                                     int32_t background) {
  if (stream == nullptr || !record(stream).premiumLabelColourSet()) return {};
  const LabelColourSet& colours = *record(stream).premiumLabelColourSet();
  switch (background) {
    case PAPERLOOM_BACKGROUND_NORMAL:
      return text(colours.labelColourOnNormalBackground);
    case PAPERLOOM_BACKGROUND_SECONDARY:
      return text(colours.labelColourOnSecondaryBackground);
    default:
      return {};
  }
}

paperloom_text paperloom_section_uid(const paperloom_section* section) {
  return textOf(section, &SectionProtocol::uid);
}

paperloom_text paperloom_section_page_id(const paperloom_section* section) {
  return textOf(section, &SectionProtocol::pageID);
}

size_t paperloom_section_card_count(const paperloom_section* section) {
  return countOf(section, &SectionProtocol::articleHeaders);
}

const paperloom_card* paperloom_section_card_at(const paperloom_section* section, size_t index) {
  return partAt<paperloom_card>(section, &SectionProtocol::articleHeaders, index);
}

paperloom_text paperloom_card_identifier(const paperloom_card* card) {
  return textOf(card, &ArticleHeaderProtocol::identifier);
}

paperloom_text paperloom_card_url(const paperloom_card* card) {
  return textOf(card, &ArticleHeaderProtocol::URL);
}

paperloom_text paperloom_card_headline(const paperloom_card* card) {
  return textOf(card, &ArticleHeaderProtocol::headline);
}

enum paperloom_article_type paperloom_card_article_type(const paperloom_card* card) {
  return card != nullptr ? enumerator(record(card).articleType()) : PAPERLOOM_ARTICLE_UNKNOWN;
}

enum paperloom_card_type paperloom_card_type(const paperloom_card* card) {
  return card != nullptr ? enumerator(record(card).cardType()) : PAPERLOOM_CARD_NONE;
}

bool paperloom_card_is_premium(const paperloom_card* card) {
  return valueOf(card, &ArticleHeaderProtocol::isPremium);
}

bool paperloom_card_is_sponsored(const paperloom_card* card) {
  return valueOf(card, &ArticleHeaderProtocol::sponsored);
}

paperloom_text paperloom_card_video_duration(const paperloom_card* card) {
  return textOf(card, &ArticleHeaderProtocol::videoDuration);
}

const paperloom_asset* paperloom_card_asset(const paperloom_card* card) {
  return partOf<paperloom_asset>(card, &ArticleHeaderProtocol::cardAsset);
}

size_t paperloom_card_author_count(const paperloom_card* card) {
  return countOf(card, &ArticleHeaderProtocol::authors);
}

const paperloom_author* paperloom_card_author_at(const paperloom_card* card, size_t index) {
  return partAt<paperloom_author>(card, &ArticleHeaderProtocol::authors, index);
}
