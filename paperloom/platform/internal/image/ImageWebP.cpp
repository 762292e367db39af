#include <webp/decode.h>

#include "paperloom/platform/internal/image/ImageFormats.h"

namespace paperloom::internal {

std::shared_ptr<const Image> decodeWebP(std::string_view bytes, std::int64_t maximumPixels) {
  const auto* data = reinterpret_cast<const std::uint8_t*>(bytes.data());
  WebPBitstreamFeatures features{};
  if (WebPGetFeatures(data, bytes.size(), &features) != VP8_STATUS_OK) return nullptr;
  if (features.has_animation != 0) return nullptr;
  auto pixels = pixelBuffer(features.width, features.height, maximumPixels);
  if (!pixels) return nullptr;
  const int stride = features.width * 4;
  const std::size_t size =
      static_cast<std::size_t>(stride) * static_cast<std::size_t>(features.height);
  if (WebPDecodeRGBAInto(data, bytes.size(), pixels.get(), size, stride) == nullptr) return nullptr;
  return std::make_shared<const Image>(features.width, features.height, std::move(pixels));
}

}  // namespace paperloom::internal
