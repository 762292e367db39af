#pragma once

#include <memory>

#include "paperloom/identity/RegistrationResponseModel.h"
#include "paperloom/model/ParserProtocol.h"

namespace paperloom {

class RegistrationParser final
    : public ParserProtocol<std::shared_ptr<const RegistrationResponseModelProtocol>> {
 public:
  tl::expected<Item, ParserError> parse(const Data& data) const override;
};

}  // namespace paperloom
