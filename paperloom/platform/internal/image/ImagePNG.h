#pragma once

#include <memory>
#include <string_view>

#include "paperloom/platform/Image.h"
#include "paperloom/platform/internal/image/PixelSink.h"

namespace paperloom::internal {

// PNG files. Null for bytes that are no whole image of the format, or not
// within the wish.
std::shared_ptr<const Image> decodePNG(std::string_view bytes, const ImageWish& wish);

}  // namespace paperloom::internal
