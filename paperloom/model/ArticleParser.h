#pragma once

#include <memory>

#include "paperloom/model/Article.h"
#include "paperloom/model/ParserProtocol.h"
#include "paperloom/platform/Export.h"

namespace paperloom {

// Reads an article document, for hosts that have its bytes from elsewhere too.
class PAPERLOOM_EXPORT ArticleParser final
    : public ParserProtocol<std::shared_ptr<const ArticleProtocol>> {
 public:
  tl::expected<Item, ParserError> parse(const Data& data) const override;
};

}  // namespace paperloom
