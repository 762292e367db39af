#include "paperloom/model/SectionMetaData.h"

#include "paperloom/model/internal/Reading.h"

namespace paperloom {

SectionCustomization sectionCustomization(std::string_view text) {
  if (text == "alwaysEnabled") return SectionCustomization::alwaysEnabled;
  if (text == "enabledByDefault") return SectionCustomization::enabledByDefault;
  return SectionCustomization::disabledByDefault;
}

std::string_view caseName(SectionCustomization customization) {
  switch (customization) {
    case SectionCustomization::alwaysEnabled:
      return "alwaysEnabled";
    case SectionCustomization::enabledByDefault:
      return "enabledByDefault";
    case SectionCustomization::disabledByDefault:
      return "disabledByDefault";
  }
  return "";
}

Result<std::shared_ptr<const SectionMetadataProtocol>> SectionMetaData::parse(
    const JSONObject& json) {
  auto uid = json.string("uid");
  auto displayName = json.string("displayName");
  auto primaryColour = json.string("primaryColour");
  auto secondaryColour = json.string("secondaryColour");
  auto accessibleColour = json.string("accessibleColour");
  const auto customizationText = json.stringView("customization");
  const auto showSponsored = json.boolean("showSponsored");
  if (!uid || !displayName || !primaryColour || !secondaryColour || !accessibleColour ||
      !customizationText || !showSponsored) {
    return parsingFailed(json, "failed to parse JSON into section meta data");
  }

  const SectionCustomization customization = sectionCustomization(*customizationText);
  if (caseName(customization) != *customizationText) {
    refuse(json, "customization", rule::unknownValue,
           "alwaysEnabled, enabledByDefault, disabledByDefault");
  }
  const bool displayAsCarousel = json.boolean("displayAsCarousel").value_or(false);
  std::shared_ptr<const FallbackCardProtocol> fallbackCards;
  if (displayAsCarousel) {
    fallbackCards = FallbackCard::make(json.strings("fallbackCardsOverride"),
                                       json.strings("premiumFallbackCardsOverride"));
  }
  return std::make_shared<const SectionMetaData>(
      Fields{.uid = std::move(*uid),
             .displayName = std::move(*displayName),
             .primaryColourHex = std::move(*primaryColour),
             .secondaryColourHex = std::move(*secondaryColour),
             .customization = customization,
             .accessibleColourHex = std::move(*accessibleColour),
             .displayAsCarousel = displayAsCarousel,
             .fallbackCards = std::move(fallbackCards),
             .showSponsored = *showSponsored});
}

}  // namespace paperloom
