#pragma once

#include <memory>

#include "paperloom/identity/ContentAuthorisation.h"
#include "paperloom/model/ParserProtocol.h"

namespace paperloom {

class AuthenticationParser final
    : public ParserProtocol<std::shared_ptr<const ContentAuthorisationProtocol>> {
 public:
  tl::expected<Item, ParserError> parse(const Data& data) const override;
};

}  // namespace paperloom
