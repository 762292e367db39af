#include "paperloom/model/DocumentParsers.h"

#include "paperloom/model/ArticleParser.h"
#include "paperloom/model/internal/ConfigParser.h"
#include "paperloom/model/internal/ImageParser.h"
#include "paperloom/model/internal/JSONParserFrame.h"
#include "paperloom/model/internal/StreamParser.h"
#include "paperloom/platform/ImageDecoder.h"

namespace paperloom {

tl::expected<ConfigParser::Item, ParserError> ConfigParser::parse(const Data& data) const {
  return parseJSONDocument<AppMetadata>(data, "failed to parse top level object in JSON config");
}

tl::expected<StreamParser::Item, ParserError> StreamParser::parse(const Data& data) const {
  return parseJSONDocument<Stream>(data, "failed to parse top level object in JSON Stream");
}

tl::expected<ArticleParser::Item, ParserError> ArticleParser::parse(const Data& data) const {
  return parseJSONDocument<Article>(data, "failed to parse top level object in JSON Article")
      .map([](Article&& article) -> Item {
        return std::make_shared<const Article>(std::move(article));
      });
}

tl::expected<ImageParser::Item, ParserError> ImageParser::parse(const Data& data) const {
  auto image = ImageDecoder::current()->decode(data.view());
  if (!image) {
    return tl::make_unexpected(
        ParserError(PaperloomError::parsingFailed("could not parse data into image")));
  }
  return image;
}

std::shared_ptr<const ParserProtocol<ConfigParser::Item>> makeConfigParser() {
  return std::make_shared<const ConfigParser>();
}

std::shared_ptr<const ParserProtocol<StreamParser::Item>> makeStreamParser() {
  return std::make_shared<const StreamParser>();
}

std::shared_ptr<const ParserProtocol<ImageParser::Item>> makeImageParser() {
  return std::make_shared<const ImageParser>();
}

}  // namespace paperloom
