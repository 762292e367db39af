#pragma once

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "paperloom/platform/Export.h"

namespace paperloom {

// Identifiers of the cards to show when a section has too little content.
class PAPERLOOM_EXPORT FallbackCardProtocol {
 public:
  virtual ~FallbackCardProtocol() = default;
  virtual const std::vector<std::string>& standard() const = 0;
  virtual const std::vector<std::string>& premium() const = 0;
};

class PAPERLOOM_EXPORT FallbackCard final : public FallbackCardProtocol {
 public:
  using List = std::optional<std::vector<std::string>>;

  FallbackCard(std::vector<std::string> standard, std::vector<std::string> premium)
      : standard_(std::move(standard)), premium_(std::move(premium)) {}

  // Null when both lists are absent; one that is absent alone becomes an empty list.
  static std::shared_ptr<const FallbackCardProtocol> make(List standard, List premium);

  const std::vector<std::string>& standard() const override { return standard_; }
  const std::vector<std::string>& premium() const override { return premium_; }

 private:
  std::vector<std::string> standard_;
  std::vector<std::string> premium_;
};

}  // namespace paperloom
