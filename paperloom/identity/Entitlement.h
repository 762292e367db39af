#pragma once

namespace paperloom {

// What the identity service says about an access token.
enum class Entitlement { premium, notPremium };

// The premium flag of a refreshed authorisation.
enum class Premium { premium, notPremium };

}  // namespace paperloom
