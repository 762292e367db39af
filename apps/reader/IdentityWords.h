#pragma once

#include <string>

#include "paperloom/operations/CheckEntitlementOperation.h"
#include "paperloom/operations/LoginOperation.h"
#include "paperloom/operations/RefreshTokenThenCheckEntitlementsOperation.h"
#include "paperloom/operations/RegistrationOperation.h"

namespace paperloom::reader {

// What an operation's outcome means to a person, in one printable line: a sentence for a success,
// and for a failure the clause that follows its name.
std::string sentence(const LoginOperationResult& result);
std::string sentence(const UserRegistrationResult& result);
// `refreshed`: new tokens have come, whatever became of the check after them.
std::string sentence(const CheckEntitlementOperationResult& result, bool refreshed);
std::string sentence(const RefreshTokenThenCheckEntitlementsOperationResult& result,
                     bool refreshed);
// Why a way of signing in is not removed.
std::string unlinkSentence(const PaperloomError& error);

}  // namespace paperloom::reader
