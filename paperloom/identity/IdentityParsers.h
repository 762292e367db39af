#pragma once

#include <memory>

#include "paperloom/identity/ContentAuthorisation.h"
#include "paperloom/identity/RegistrationResponseModel.h"
#include "paperloom/model/JSONDocumentParser.h"

namespace paperloom {

// The parsers that the coordinators use for the documents of the identity service, for hosts that
// have a document's bytes from elsewhere.

using AuthenticationParser =
    JSONDocumentParser<ContentAuthorisation, "failed to parse content authorisation JSON">;

using RegistrationParser =
    JSONDocumentParser<RegistrationResponseModel, "failed to parse registration response JSON">;

// Each the parser of one kind of document, as the managers take it; usable on any thread.
inline std::shared_ptr<const ParserProtocol<AuthenticationParser::Item>>
makeAuthenticationParser() {
  return std::make_shared<const AuthenticationParser>();
}
inline std::shared_ptr<const ParserProtocol<RegistrationParser::Item>> makeRegistrationParser() {
  return std::make_shared<const RegistrationParser>();
}

}  // namespace paperloom
