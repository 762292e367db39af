#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "paperloom/identity/Token.h"
#include "paperloom/model/PaperloomError.h"
#include "paperloom/platform/Export.h"
#include "paperloom/platform/JSON.h"

namespace paperloom {

// What the identity service says of an account that it has made.
class PAPERLOOM_EXPORT RegistrationResponseModelProtocol {
 public:
  virtual ~RegistrationResponseModelProtocol() = default;
  virtual const std::string& id() const = 0;
  virtual const std::shared_ptr<const TokenProtocol>& token() const = 0;
  virtual const std::string& email() const = 0;
  virtual const std::string& firstName() const = 0;
  virtual const std::string& lastName() const = 0;
  virtual bool marketingEmailOptIn() const = 0;
  virtual bool marketingPhoneOptIn() const = 0;
  virtual bool marketingPostOptIn() const = 0;
  virtual bool marketingSMSOptIn() const = 0;
};

class PAPERLOOM_EXPORT RegistrationResponseModel final : public RegistrationResponseModelProtocol {
 public:
  struct Key {
    Key() = delete;
    static constexpr std::string_view id = "@id";
    static constexpr std::string_view token = "token";
    static constexpr std::string_view email = "email";
    static constexpr std::string_view firstName = "firstName";
    static constexpr std::string_view lastName = "lastName";
    static constexpr std::string_view marketingEmailOptIn = "marketingEmailOptIn";
    static constexpr std::string_view marketingPhoneOptIn = "marketingPhoneOptIn";
    static constexpr std::string_view marketingPostOptIn = "marketingPostOptIn";
    static constexpr std::string_view marketingSMSOptIn = "marketingSMSOptIn";
  };

  struct Fields {
    std::string id;
    std::shared_ptr<const TokenProtocol> token;  // never null
    std::string email;
    std::string firstName;
    std::string lastName;
    bool marketingEmailOptIn = false;
    bool marketingPhoneOptIn = false;
    bool marketingPostOptIn = false;
    bool marketingSMSOptIn = false;
  };

  explicit RegistrationResponseModel(Fields fields) : fields_(std::move(fields)) {}
  // Fails with "failed parsing the registration response", or as Token::parse does.
  [[nodiscard]] static Result<std::shared_ptr<const RegistrationResponseModelProtocol>> parse(
      const JSONObject& json);

  const std::string& id() const override { return fields_.id; }
  const std::shared_ptr<const TokenProtocol>& token() const override { return fields_.token; }
  const std::string& email() const override { return fields_.email; }
  const std::string& firstName() const override { return fields_.firstName; }
  const std::string& lastName() const override { return fields_.lastName; }
  bool marketingEmailOptIn() const override { return fields_.marketingEmailOptIn; }
  bool marketingPhoneOptIn() const override { return fields_.marketingPhoneOptIn; }
  bool marketingPostOptIn() const override { return fields_.marketingPostOptIn; }
  bool marketingSMSOptIn() const override { return fields_.marketingSMSOptIn; }

 private:
  Fields fields_;
};

}  // namespace paperloom
