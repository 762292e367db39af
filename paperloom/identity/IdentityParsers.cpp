#include "paperloom/identity/IdentityParsers.h"

#include "paperloom/identity/internal/AuthenticationParser.h"
#include "paperloom/identity/internal/RegistrationParser.h"
#include "paperloom/model/internal/JSONParserFrame.h"

namespace paperloom {

tl::expected<AuthenticationParser::Item, ParserError> AuthenticationParser::parse(
    const Data& data) const {
  return parseJSONDocument<ContentAuthorisation>(data,
                                                 "failed to parse content authorisation JSON");
}

tl::expected<RegistrationParser::Item, ParserError> RegistrationParser::parse(
    const Data& data) const {
  return parseJSONDocument<RegistrationResponseModel>(data,
                                                      "failed to parse registration response JSON");
}

std::shared_ptr<const ParserProtocol<AuthenticationParser::Item>> makeAuthenticationParser() {
  return std::make_shared<const AuthenticationParser>();
}

std::shared_ptr<const ParserProtocol<RegistrationParser::Item>> makeRegistrationParser() {
  return std::make_shared<const RegistrationParser>();
}

}  // namespace paperloom
