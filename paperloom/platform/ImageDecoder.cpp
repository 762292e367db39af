#include "paperloom/platform/ImageDecoder.h"

#include <cstring>
#include <utility>

#include "paperloom/platform/Guarded.h"
#include "paperloom/platform/internal/image/ImageGIF.h"
#include "paperloom/platform/internal/image/ImageJPEG.h"
#include "paperloom/platform/internal/image/ImagePNG.h"
#include "paperloom/platform/internal/image/ImageWebP.h"
#include "paperloom/platform/internal/image/Orientation.h"
#include "paperloom/platform/internal/image/PixelSink.h"

namespace paperloom {
namespace {

Guarded<std::shared_ptr<const ImageDecoder>>& currentDecoder() {
  static auto* const slot = new Guarded<std::shared_ptr<const ImageDecoder>>(
      std::make_shared<const StandardImageDecoder>());
  return *slot;
}

}  // namespace

std::shared_ptr<const ImageDecoder> ImageDecoder::current() { return currentDecoder().get(); }

void ImageDecoder::setCurrent(std::shared_ptr<const ImageDecoder> decoder) {
  if (!decoder) decoder = std::make_shared<const StandardImageDecoder>();
  currentDecoder().set(std::move(decoder));
}

std::shared_ptr<const Image> ImageDecoder::decodeToFit(std::string_view bytes,
                                                       ImageSize maximum) const {
  const auto whole = decode(bytes);
  if (!whole) return nullptr;
  const ImageSize size{whole->width(), whole->height()};
  const ImageSize target = internal::storedTarget(size, internal::uprightOrientation, maximum);
  if (target.width == size.width && target.height == size.height) return whole;
  internal::PixelSink sink(size, target, internal::uprightOrientation);
  if (!sink.isUsable()) return nullptr;
  const std::size_t stride = static_cast<std::size_t>(size.width) * 4;
  for (std::size_t row = 0; row < whole->pixels().size(); row += stride) {
    std::memcpy(sink.nextRow(), whole->pixels().data() + row, stride);
    sink.take();
  }
  return sink.finish();
}

namespace {

std::shared_ptr<const Image> decodeAny(std::string_view bytes, const internal::ImageWish& wish) {
  if (bytes.starts_with("\xff\xd8\xff")) return internal::decodeJPEG(bytes, wish);
  if (bytes.starts_with("\x89PNG\r\n\x1a\n")) return internal::decodePNG(bytes, wish);
  if (bytes.starts_with("RIFF") && bytes.substr(0, 12).ends_with("WEBP")) {
    return internal::decodeWebP(bytes, wish);
  }
  if (bytes.starts_with("GIF8")) return internal::decodeGIF(bytes, wish);
  return nullptr;
}

}  // namespace

std::shared_ptr<const Image> StandardImageDecoder::decode(std::string_view bytes) const {
  return decodeAny(bytes, {.maximumPixels = maximumPixels_});
}

std::shared_ptr<const Image> StandardImageDecoder::decodeToFit(std::string_view bytes,
                                                               ImageSize maximum) const {
  return decodeAny(bytes, {.maximumPixels = maximumPixels_, .fit = maximum});
}

}  // namespace paperloom
