#pragma once

#include <array>
#include <string_view>
#include <utility>

#include "paperloom/model/RawValue.h"

namespace paperloom {

// What a login identifies itself with.
enum class AuthenticationLoginCredentialType {
  emailAndPassword,  // an e-mail address and its password
  kxNumber,          // a subscriber number
};

template <>
inline constexpr std::array<std::pair<AuthenticationLoginCredentialType, std::string_view>, 2>
    rawValues<AuthenticationLoginCredentialType>{{
        {AuthenticationLoginCredentialType::emailAndPassword, "EMAIL_PASSWORD"},
        {AuthenticationLoginCredentialType::kxNumber, "KX_NUMBER"},
    }};

}  // namespace paperloom
