#pragma once

#include <memory>
#include <string_view>
#include <variant>

#include "paperloom/model/RegistrationWall.h"
#include "paperloom/platform/Export.h"

namespace paperloom {

// What stands between the reader and an article.
struct PAPERLOOM_EXPORT WallType {
  struct RegWall {
    std::shared_ptr<const RegistrationWallProtocol> wall;  // never null

    friend bool operator==(const RegWall& a, const RegWall& b) { return a.wall->isEqual(*b.wall); }
  };
  struct None {
    friend bool operator==(None, None) = default;
  };
  struct PayWall {
    friend bool operator==(PayWall, PayWall) = default;
  };

  std::variant<RegWall, None, PayWall> value = None{};

  // "regWall", "none" or "payWall".
  std::string_view caseName() const;

  friend bool operator==(const WallType&, const WallType&) = default;
};

}  // namespace paperloom
