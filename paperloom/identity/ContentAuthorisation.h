#pragma once

#include <memory>
#include <string>
#include <utility>

#include "paperloom/model/PaperloomError.h"
#include "paperloom/platform/Export.h"
#include "paperloom/platform/JSON.h"

namespace paperloom {

// The tokens that prove a login.
class PAPERLOOM_EXPORT ContentAuthorisationProtocol {
 public:
  virtual ~ContentAuthorisationProtocol() = default;
  virtual const std::string& accessToken() const = 0;
  virtual const std::string& refreshToken() const = 0;
  virtual const std::string& idToken() const = 0;
};

class PAPERLOOM_EXPORT ContentAuthorisation final : public ContentAuthorisationProtocol {
 public:
  // For a host that has kept the tokens.
  ContentAuthorisation(std::string accessToken, std::string refreshToken, std::string idToken)
      : accessToken_(std::move(accessToken)),
        refreshToken_(std::move(refreshToken)),
        idToken_(std::move(idToken)) {}

  // Fails with "Content Authorisation missing one or more tokens".
  [[nodiscard]] static Result<std::shared_ptr<const ContentAuthorisationProtocol>> parse(
      const JSONObject& json);

  const std::string& accessToken() const override { return accessToken_; }
  const std::string& refreshToken() const override { return refreshToken_; }
  const std::string& idToken() const override { return idToken_; }

 private:
  std::string accessToken_;
  std::string refreshToken_;
  std::string idToken_;
};

}  // namespace paperloom
