#pragma once

#include <array>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "paperloom/model/ColourSet.h"
#include "paperloom/model/PaperloomError.h"
#include "paperloom/model/RawValue.h"
#include "paperloom/platform/Export.h"
#include "paperloom/platform/JSON.h"

namespace paperloom {

// Whether the reader may close a wall (soft) or not (hard).
enum class WallDismissType { hard, soft };

template <>
inline constexpr auto rawValues<WallDismissType> =
    std::to_array<std::pair<WallDismissType, std::string_view>>({{WallDismissType::hard, "hard"},
                                                                 {WallDismissType::soft, "soft"}});

// What an article shows to a reader who has to register, or log in, before reading on.
class PAPERLOOM_EXPORT RegistrationWallProtocol {
 public:
  virtual ~RegistrationWallProtocol() = default;
  virtual const std::string& headline() const = 0;
  virtual WallDismissType dismissType() const = 0;
  virtual const ColourSet& wallDecorationColours() const = 0;
  virtual const std::string& registerButtonText() const = 0;
  virtual const std::string& loginButtonText() const = 0;
  virtual const std::string& channel() const = 0;
  // Whether all properties are the same, letter case included.
  virtual bool isEqual(const RegistrationWallProtocol& other) const = 0;
};

class PAPERLOOM_EXPORT RegistrationWall final : public RegistrationWallProtocol {
 public:
  struct Fields {
    std::string headline;
    WallDismissType dismissType;
    ColourSet wallDecorationColours;
    std::string registerButtonText;
    std::string loginButtonText;
    std::string channel;
  };

  explicit RegistrationWall(Fields&& fields) : fields_(std::move(fields)) {}
  // Every key is required.
  [[nodiscard]] static Result<std::shared_ptr<const RegistrationWallProtocol>> parse(
      const JSONObject& json);

  const std::string& headline() const override { return fields_.headline; }
  WallDismissType dismissType() const override { return fields_.dismissType; }
  const ColourSet& wallDecorationColours() const override { return fields_.wallDecorationColours; }
  const std::string& registerButtonText() const override { return fields_.registerButtonText; }
  const std::string& loginButtonText() const override { return fields_.loginButtonText; }
  const std::string& channel() const override { return fields_.channel; }
  bool isEqual(const RegistrationWallProtocol& other) const override;

 private:
  Fields fields_;
};

}  // namespace paperloom
