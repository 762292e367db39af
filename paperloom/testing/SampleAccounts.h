#pragma once

#include <span>
#include <string_view>

namespace paperloom::sample {

// An account that every sample service knows from the start.
struct SampleAccount {
  std::string_view identifier;      // e-mail address or subscriber number
  std::string_view authKey;         // its password
  std::string_view credentialType;  // "EMAIL_PASSWORD" or "KX_NUMBER"
  std::string_view behaviour;       // for people
  bool premium = false;

  // What becomes of the tokens: those of a login may be past their time already, the refresh token
  // may be refused, and the refresh and entitlement calls may always answer with one status.
  bool loginTokenExpired = false;
  bool refreshTokenRefused = false;
  int refreshStatus = 0;
  int entitlementStatus = 0;
};

// All of them; constant.
std::span<const SampleAccount> sampleAccounts();

// A name that makes the identity service misbehave wherever it stands: as identifier or e-mail
// (before an optional "@..."), as refresh token, as token or as Authorization.
struct SampleProvocation {
  std::string_view name;
  std::string_view behaviour;  // for people
};

// All of them; constant.
std::span<const SampleProvocation> sampleProvocations();

}  // namespace paperloom::sample
