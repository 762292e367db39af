#pragma once

#include <memory>
#include <string_view>

#include "paperloom/platform/Image.h"
#include "paperloom/platform/internal/image/PixelSink.h"

namespace paperloom::internal {

// GIF files; of an animation the first frame, on a clear canvas. Null for bytes that are no whole
// file of the format, or not within the wish.
std::shared_ptr<const Image> decodeGIF(std::string_view bytes, const ImageWish& wish);

}  // namespace paperloom::internal
