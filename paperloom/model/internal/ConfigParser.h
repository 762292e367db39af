#pragma once

#include <memory>

#include "paperloom/model/AppMetadata.h"
#include "paperloom/model/ParserProtocol.h"

namespace paperloom {

class ConfigParser final : public ParserProtocol<std::shared_ptr<const AppMetadataProtocol>> {
 public:
  tl::expected<Item, ParserError> parse(const Data& data) const override;
};

}  // namespace paperloom
