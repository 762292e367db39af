#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "paperloom/model/PaperloomError.h"
#include "paperloom/platform/Date.h"
#include "paperloom/platform/Export.h"
#include "paperloom/platform/JSON.h"

namespace paperloom {

// The tokens of a new account.
class PAPERLOOM_EXPORT TokenProtocol {
 public:
  virtual ~TokenProtocol() = default;
  virtual const std::string& accessToken() const = 0;
  // When the access token ends.
  virtual Date expiresIn() const = 0;
  virtual const std::string& idToken() const = 0;
  // For the commenting service.
  virtual const std::string& livefyreToken() const = 0;
  virtual const std::string& tokenType() const = 0;
  virtual const std::optional<std::string>& refreshToken() const = 0;
};

class PAPERLOOM_EXPORT Token final : public TokenProtocol {
 public:
  struct Key {
    Key() = delete;
    static constexpr std::string_view accessToken = "accessToken";
    static constexpr std::string_view expiresIn = "expiresIn";
    static constexpr std::string_view idToken = "idToken";
    static constexpr std::string_view livefyreToken = "livefyreToken";
    static constexpr std::string_view tokenType = "tokenType";
    static constexpr std::string_view refreshToken = "refreshToken";
  };

  struct Fields {
    std::string accessToken;
    Date expiresIn;
    std::string idToken;
    std::string livefyreToken;
    std::string tokenType;
    std::optional<std::string> refreshToken;
  };

  explicit Token(Fields fields) : fields_(std::move(fields)) {}
  // The document gives the token's life in seconds, counted from `now`; a life beyond what a Date
  // can say ends at the last instant (or began at the first). Fails with "failed to parse token".
  [[nodiscard]] static Result<std::shared_ptr<const TokenProtocol>> parse(const JSONObject& json,
                                                                          Date now = currentDate());

  const std::string& accessToken() const override { return fields_.accessToken; }
  Date expiresIn() const override { return fields_.expiresIn; }
  const std::string& idToken() const override { return fields_.idToken; }
  const std::string& livefyreToken() const override { return fields_.livefyreToken; }
  const std::string& tokenType() const override { return fields_.tokenType; }
  const std::optional<std::string>& refreshToken() const override { return fields_.refreshToken; }

 private:
  Fields fields_;
};

}  // namespace paperloom
