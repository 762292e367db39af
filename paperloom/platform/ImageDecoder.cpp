#include "paperloom/platform/ImageDecoder.h"

#include <mutex>
#include <new>
#include <utility>

#include "paperloom/platform/internal/image/ImageFormats.h"

namespace paperloom {
namespace {

struct CurrentDecoder {
  std::mutex mutex;
  std::shared_ptr<const ImageDecoder> decoder = std::make_shared<StandardImageDecoder>();
};

CurrentDecoder& currentDecoder() {
  static auto* const slot = new CurrentDecoder;
  return *slot;
}

}  // namespace

std::shared_ptr<const ImageDecoder> ImageDecoder::current() {
  CurrentDecoder& slot = currentDecoder();
  const std::lock_guard lock(slot.mutex);
  return slot.decoder;
}

void ImageDecoder::setCurrent(std::shared_ptr<const ImageDecoder> decoder) {
  if (!decoder) decoder = std::make_shared<StandardImageDecoder>();
  CurrentDecoder& slot = currentDecoder();
  const std::lock_guard lock(slot.mutex);
  std::swap(slot.decoder, decoder);  // the old one dies after the lock is released
}

std::shared_ptr<const Image> StandardImageDecoder::decode(std::string_view bytes) const {
  if (bytes.starts_with("\xff\xd8\xff")) return internal::decodeJPEG(bytes, maximumPixels_);
  if (bytes.starts_with("\x89PNG\r\n\x1a\n")) return internal::decodePNG(bytes, maximumPixels_);
  if (bytes.starts_with("RIFF") && bytes.substr(0, 12).ends_with("WEBP")) {
    return internal::decodeWebP(bytes, maximumPixels_);
  }
  return nullptr;
}

namespace internal {

std::unique_ptr<std::uint8_t[]> pixelBuffer(std::int64_t width, std::int64_t height,
                                            std::int64_t maximumPixels) {
  if (width <= 0 || height <= 0 || width > maximumPixels / height) return nullptr;
  const auto size = static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 4;
  return std::unique_ptr<std::uint8_t[]>(new (std::nothrow) std::uint8_t[size]);
}

}  // namespace internal
}  // namespace paperloom
