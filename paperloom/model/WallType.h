#pragma once

#include <memory>
#include <string_view>
#include <variant>

#include "paperloom/model/CaseName.h"
#include "paperloom/model/RegistrationWall.h"
#include "paperloom/platform/Export.h"

namespace paperloom {

// What stands between the reader and an article.
struct PAPERLOOM_EXPORT WallType {
  struct RegWall {
    static constexpr std::string_view name = "regWall";
    std::shared_ptr<const RegistrationWallProtocol> wall;  // never null

    friend bool operator==(const RegWall& a, const RegWall& b) {
      return a.wall == b.wall || (a.wall && b.wall && a.wall->isEqual(*b.wall));
    }
  };
  struct None {
    static constexpr std::string_view name = "none";
    friend bool operator==(None, None) = default;
  };
  struct PayWall {
    static constexpr std::string_view name = "payWall";
    friend bool operator==(PayWall, PayWall) = default;
  };

  std::variant<RegWall, None, PayWall> value = None{};

  // "regWall", "none" or "payWall".
  std::string_view caseName() const { return paperloom::caseName(value); }

  friend bool operator==(const WallType&, const WallType&) = default;
};

}  // namespace paperloom
