#pragma once

#include <memory>
#include <optional>

#include "paperloom/model/AppMetadata.h"
#include "paperloom/model/JSONDocumentParser.h"
#include "paperloom/model/Stream.h"
#include "paperloom/platform/Export.h"
#include "paperloom/platform/Image.h"

namespace paperloom {

// The parsers that the data coordinators use for the documents of the content service, for hosts
// that have a document's bytes from elsewhere. ArticleParser is the one for articles.

using ConfigParser =
    JSONDocumentParser<AppMetadata, "failed to parse top level object in JSON config">;

// Its parse sets the shared data coordinator's current app metadata, as Stream::parse does.
using StreamParser = JSONDocumentParser<Stream, "failed to parse top level object in JSON Stream">;

// Asks the current image decoder for the picture: in its own size, or no larger than `maximumSize`.
class PAPERLOOM_EXPORT ImageParser final : public ParserProtocol<std::shared_ptr<const Image>> {
 public:
  explicit ImageParser(std::optional<ImageSize> maximumSize = std::nullopt)
      : maximumSize_(maximumSize) {}

  tl::expected<Item, ParserError> parse(const Data& data) const override;

 private:
  std::optional<ImageSize> maximumSize_;
};

// Each the parser of one kind of document, as the managers take it; usable on any thread.
inline std::shared_ptr<const ParserProtocol<ConfigParser::Item>> makeConfigParser() {
  return std::make_shared<const ConfigParser>();
}
inline std::shared_ptr<const ParserProtocol<StreamParser::Item>> makeStreamParser() {
  return std::make_shared<const StreamParser>();
}
inline std::shared_ptr<const ParserProtocol<ImageParser::Item>> makeImageParser() {
  return std::make_shared<const ImageParser>();
}

}  // namespace paperloom
