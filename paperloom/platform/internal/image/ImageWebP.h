#pragma once

#include <memory>
#include <string_view>

#include "paperloom/platform/Image.h"
#include "paperloom/platform/internal/image/PixelSink.h"

namespace paperloom::internal {

// WebP files; of an animation the first frame. Null for bytes that are no whole image of the
// format, or not within the wish.
std::shared_ptr<const Image> decodeWebP(std::string_view bytes, const ImageWish& wish);

}  // namespace paperloom::internal
