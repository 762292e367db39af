#include "paperloom/model/FallbackCard.h"

namespace paperloom {

std::shared_ptr<const FallbackCardProtocol> FallbackCard::make(List standard, List premium) {
  if (!standard && !premium) return nullptr;
  return std::make_shared<const FallbackCard>(
      std::move(standard).value_or(std::vector<std::string>()),
      std::move(premium).value_or(std::vector<std::string>()));
}

}  // namespace paperloom
