#pragma once

#include "apps/reader/RecordJSON.h"
#include "paperloom/identity/ContentAuthorisation.h"
#include "paperloom/identity/RegistrationResponseModel.h"
#include "paperloom/operations/CheckEntitlementOperation.h"
#include "paperloom/operations/LoginOperation.h"
#include "paperloom/operations/RefreshTokenThenCheckEntitlementsOperation.h"
#include "paperloom/operations/RegistrationOperation.h"

namespace paperloom::reader {

// The identity documents with all that they hold, secrets too: for a person's own files only.
JSON toJSON(const ContentAuthorisationProtocol& authorisation);
JSON toJSON(const RegistrationResponseModelProtocol& registration);

// The outcomes of operations, without secrets.
JSON toJSON(const LoginOperationResult& result);
JSON toJSON(const CheckEntitlementOperationResult& result);
JSON toJSON(const RefreshTokenThenCheckEntitlementsOperationResult& result);
JSON toJSON(const UserRegistrationResult& result);

}  // namespace paperloom::reader
