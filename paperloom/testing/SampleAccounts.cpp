#include "paperloom/testing/SampleAccounts.h"

#include <array>

namespace paperloom::sample {
namespace {

constexpr std::string_view email = "EMAIL_PASSWORD";
constexpr std::string_view number = "KX_NUMBER";

constexpr std::array<SampleAccount, 8> accounts = {{
    {.identifier = "premium@lantern.example",
     .authKey = "lighthouse-7",
     .credentialType = email,
     .behaviour = "a premium reader",
     .premium = true},
    {.identifier = "reader@lantern.example",
     .authKey = "breakwater-3",
     .credentialType = email,
     .behaviour = "a reader without premium"},
    {.identifier = "KX204417",
     .authKey = "quayside-9",
     .credentialType = number,
     .behaviour = "a premium subscriber with a subscriber number",
     .premium = true},
    {.identifier = "expired@lantern.example",
     .authKey = "lowtide-5",
     .credentialType = email,
     .behaviour = "premium; the access token of a login is past its time, a refresh helps",
     .premium = true,
     .loginTokenExpired = true},
    {.identifier = "locked-out@lantern.example",
     .authKey = "drydock-2",
     .credentialType = email,
     .behaviour = "the access token of a login is past its time and its refresh token is refused",
     .premium = true,
     .loginTokenExpired = true,
     .refreshTokenRefused = true},
    {.identifier = "refresh-broken@lantern.example",
     .authKey = "sandbank-4",
     .credentialType = email,
     .behaviour = "the access token of a login is past its time and every refresh answers 500",
     .premium = true,
     .loginTokenExpired = true,
     .refreshStatus = 500},
    {.identifier = "refused@lantern.example",
     .authKey = "undertow-6",
     .credentialType = email,
     .behaviour = "every entitlement check answers 401, also after a refresh",
     .entitlementStatus = 401},
    {.identifier = "unchecked@lantern.example",
     .authKey = "foghorn-8",
     .credentialType = email,
     .behaviour = "every entitlement check answers 500",
     .entitlementStatus = 500},
}};

constexpr std::array<SampleProvocation, 6> provocations = {{
    {"answer-CODE", "answers that status, 200 to 599, with a small JSON body"},
    {"empty-CODE", "answers that status without a body"},
    {"garbled", "answers 200 with a body that is not JSON"},
    {"silence", "never answers"},
    {"cut", "answers 200 and closes in the middle of the body"},
    {"no-refresh...", "registers an account whose answer has no refresh token (e-mail only)"},
}};

}  // namespace

std::span<const SampleAccount> sampleAccounts() { return accounts; }
std::span<const SampleProvocation> sampleProvocations() { return provocations; }

}  // namespace paperloom::sample
