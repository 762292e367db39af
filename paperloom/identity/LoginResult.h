#pragma once

#include <memory>
#include <variant>

#include "paperloom/identity/ContentAuthorisation.h"

namespace paperloom {

// How a login may end, for hosts that speak of it among themselves. LoginOperation has a result
// type of its own.
struct LoginResult {
  struct AuthenticatedAndPremium {
    std::shared_ptr<const ContentAuthorisationProtocol> token;
  };
  struct AuthenticatedAndNotPremium {
    std::shared_ptr<const ContentAuthorisationProtocol> token;
  };
  struct Failure {};

  std::variant<AuthenticatedAndPremium, AuthenticatedAndNotPremium, Failure> value = Failure{};
};

}  // namespace paperloom
