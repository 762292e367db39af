#include "paperloom/identity/ContentAuthorisation.h"

#include "paperloom/model/JSONParsing.h"

namespace paperloom {

Result<std::shared_ptr<const ContentAuthorisationProtocol>> ContentAuthorisation::parse(
    const JSONObject& json) {
  const auto accessToken = json.string("accessToken");
  const auto refreshToken = json.string("refreshToken");
  const auto idToken = json.string("idToken");
  if (!accessToken || !refreshToken || !idToken) {
    return parsingFailed(json, "Content Authorisation missing one or more tokens");
  }
  return std::make_shared<const ContentAuthorisation>(*accessToken, *refreshToken, *idToken);
}

}  // namespace paperloom
