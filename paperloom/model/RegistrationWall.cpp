#include "paperloom/model/RegistrationWall.h"

#include "paperloom/model/internal/Reading.h"

namespace paperloom {

Result<std::shared_ptr<const RegistrationWallProtocol>> RegistrationWall::parse(
    const JSONObject& json) {
  auto headline = json.string("headline");
  const auto dismissType = caseUnder<WallDismissType>(json, "dismissType");
  auto primary = json.string("primaryColour");
  auto secondary = json.string("secondaryColour");
  auto accessible = json.string("accessibleColour");
  auto registerButtonText = json.string("registerButtonText");
  auto loginButtonText = json.string("loginButtonText");
  auto channel = json.string("channel");
  if (!headline || !dismissType || !primary || !secondary || !accessible || !registerButtonText ||
      !loginButtonText || !channel) {
    return parsingFailed(json, "failed to parse JSON into reg wall");
  }
  return std::make_shared<const RegistrationWall>(
      Fields{.headline = std::move(*headline),
             .dismissType = *dismissType,
             .wallDecorationColours = {.primaryColourHex = std::move(*primary),
                                       .secondaryColourHex = std::move(*secondary),
                                       .accessibleColourHex = std::move(*accessible)},
             .registerButtonText = std::move(*registerButtonText),
             .loginButtonText = std::move(*loginButtonText),
             .channel = std::move(*channel)});
}

bool RegistrationWall::isEqual(const RegistrationWallProtocol& other) const {
  return headline() == other.headline() && dismissType() == other.dismissType() &&
         wallDecorationColours() == other.wallDecorationColours() &&
         registerButtonText() == other.registerButtonText() &&
         loginButtonText() == other.loginButtonText() && channel() == other.channel();
}

}  // namespace paperloom
