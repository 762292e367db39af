#include "paperloom/model/DocumentParsers.h"

#include "paperloom/platform/ImageDecoder.h"

namespace paperloom {

tl::expected<ImageParser::Item, ParserError> ImageParser::parse(const Data& data) const {
  const auto decoder = ImageDecoder::current();
  auto image = maximumSize_ ? decoder->decodeToFit(data.view(), *maximumSize_)
                            : decoder->decode(data.view());
  if (!image) {
    return tl::make_unexpected(
        ParserError(PaperloomError::parsingFailed("could not parse data into image")));
  }
  return image;
}

}  // namespace paperloom
