#include "paperloom/model/GlobalMetadata.h"

#include "paperloom/model/JSONParsing.h"

namespace paperloom {

Result<std::shared_ptr<const GlobalMetadataProtocol>> GlobalMetadata::parse(
    const JSONObject& json) {
  auto primary = json.string("premiumPrimaryColour");
  auto secondary = json.string("premiumSecondaryColour");
  auto accessible = json.string("premiumAccessibleColour");
  auto labelOnNormal = json.string("premiumLabelColourOnNormalBackground");
  auto labelOnSecondary = json.string("premiumLabelColourOnSecondaryBackground");
  if (!primary || !secondary || !accessible || !labelOnNormal || !labelOnSecondary) {
    return parsingFailed(json, "failed to parse JSON into global metadata");
  }
  return std::make_shared<const GlobalMetadata>(Fields{
      .premiumPrimaryColour = std::move(*primary),
      .premiumSecondaryColour = std::move(*secondary),
      .premiumAccessibleColour = std::move(*accessible),
      .premiumLabelColourOnNormalBackground = std::move(*labelOnNormal),
      .premiumLabelColourOnSecondaryBackground = std::move(*labelOnSecondary),
      .fallbackCards =
          FallbackCard::make(json.strings("fallbackCards"), json.strings("premiumFallbackCards"))});
}

}  // namespace paperloom
