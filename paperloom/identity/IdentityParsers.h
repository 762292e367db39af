#pragma once

#include <memory>

#include "paperloom/identity/ContentAuthorisation.h"
#include "paperloom/identity/RegistrationResponseModel.h"
#include "paperloom/model/ParserProtocol.h"
#include "paperloom/platform/Export.h"

namespace paperloom {

// The parsers that the coordinators use for the documents of the identity service, for hosts that
// have a document's bytes from elsewhere.

PAPERLOOM_EXPORT
std::shared_ptr<const ParserProtocol<std::shared_ptr<const ContentAuthorisationProtocol>>>
makeAuthenticationParser();

PAPERLOOM_EXPORT
std::shared_ptr<const ParserProtocol<std::shared_ptr<const RegistrationResponseModelProtocol>>>
makeRegistrationParser();

}  // namespace paperloom
