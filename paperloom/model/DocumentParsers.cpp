#include "paperloom/model/DocumentParsers.h"

#include "paperloom/platform/ImageDecoder.h"

namespace paperloom {

tl::expected<ImageParser::Item, ParserError> ImageParser::parse(const Data& data) const {
  auto image = ImageDecoder::current()->decode(data.view());
  if (!image) {
    return tl::make_unexpected(
        ParserError(PaperloomError::parsingFailed("could not parse data into image")));
  }
  return image;
}

}  // namespace paperloom
