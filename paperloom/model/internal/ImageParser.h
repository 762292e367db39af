#pragma once

#include <memory>

#include "paperloom/model/ParserProtocol.h"
#include "paperloom/platform/Image.h"

namespace paperloom {

// Asks the current image decoder for the picture.
class ImageParser final : public ParserProtocol<std::shared_ptr<const Image>> {
 public:
  tl::expected<Item, ParserError> parse(const Data& data) const override;
};

}  // namespace paperloom
