#pragma once

#include <cstdint>
#include <memory>
#include <string_view>

#include "paperloom/platform/Image.h"

namespace paperloom::internal {

// One function a file format; each gives null for bytes that are no whole image of the format, or
// whose header claims more than `maximumPixels`.
std::shared_ptr<const Image> decodeJPEG(std::string_view bytes, std::int64_t maximumPixels);
std::shared_ptr<const Image> decodePNG(std::string_view bytes, std::int64_t maximumPixels);
std::shared_ptr<const Image> decodeWebP(std::string_view bytes, std::int64_t maximumPixels);

// Room for the pixels of an image that may be decoded; null when it is too large or there is no
// memory. The bytes are not touched, so a file that ends early costs no more than it holds.
std::unique_ptr<std::uint8_t[]> pixelBuffer(std::int64_t width, std::int64_t height,
                                            std::int64_t maximumPixels);

}  // namespace paperloom::internal
