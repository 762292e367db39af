#include "paperloom/identity/RegistrationResponseModel.h"

#include "paperloom/model/JSONParsing.h"

namespace paperloom {

Result<std::shared_ptr<const RegistrationResponseModelProtocol>> RegistrationResponseModel::parse(
    const JSONObject& json) {
  const auto id = json.string(Key::id);
  const auto tokenObject = json.object(Key::token);
  const auto email = json.string(Key::email);
  const auto firstName = json.string(Key::firstName);
  const auto lastName = json.string(Key::lastName);
  const auto emailOptIn = json.boolean(Key::marketingEmailOptIn);
  const auto phoneOptIn = json.boolean(Key::marketingPhoneOptIn);
  const auto postOptIn = json.boolean(Key::marketingPostOptIn);
  const auto smsOptIn = json.boolean(Key::marketingSMSOptIn);
  if (!id || !tokenObject || !email || !firstName || !lastName || !emailOptIn || !phoneOptIn ||
      !postOptIn || !smsOptIn) {
    return parsingFailed(json, "failed parsing the registration response");
  }
  auto token = Token::parse(*tokenObject);
  if (!token) return tl::make_unexpected(std::move(token.error()));
  return std::make_shared<const RegistrationResponseModel>(Fields{
      .id = *id,
      .token = std::move(*token),
      .email = *email,
      .firstName = *firstName,
      .lastName = *lastName,
      .marketingEmailOptIn = *emailOptIn,
      .marketingPhoneOptIn = *phoneOptIn,
      .marketingPostOptIn = *postOptIn,
      .marketingSMSOptIn = *smsOptIn,
  });
}

}  // namespace paperloom
