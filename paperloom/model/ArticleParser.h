#pragma once

#include <memory>

#include "paperloom/model/Article.h"
#include "paperloom/model/JSONDocumentParser.h"

namespace paperloom {

// Reads an article document, for hosts that have its bytes from elsewhere too.
using ArticleParser =
    JSONDocumentParser<Article, "failed to parse top level object in JSON Article",
                       std::shared_ptr<const ArticleProtocol>>;

}  // namespace paperloom
