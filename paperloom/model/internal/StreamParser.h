#pragma once

#include <memory>

#include "paperloom/model/ParserProtocol.h"
#include "paperloom/model/Stream.h"

namespace paperloom {

class StreamParser final : public ParserProtocol<std::shared_ptr<const StreamProtocol>> {
 public:
  tl::expected<Item, ParserError> parse(const Data& data) const override;
};

}  // namespace paperloom
