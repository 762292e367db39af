#include "paperloom/platform/internal/image/ImageWebP.h"

#include <webp/decode.h>
#include <webp/demux.h>

#include <cstring>
#include <new>

#include "paperloom/platform/internal/image/Orientation.h"

namespace paperloom::internal {
namespace {

int orientationOf(const WebPData& file) {
  const std::unique_ptr<WebPDemuxer, decltype(&WebPDemuxDelete)> demuxer(WebPDemux(&file),
                                                                         &WebPDemuxDelete);
  if (!demuxer) return uprightOrientation;
  WebPChunkIterator chunk{};
  int orientation = uprightOrientation;
  if (WebPDemuxGetChunk(demuxer.get(), "EXIF", 1, &chunk) != 0) {
    orientation =
        orientationFromExif({reinterpret_cast<const char*>(chunk.chunk.bytes), chunk.chunk.size});
  }
  WebPDemuxReleaseChunkIterator(&chunk);
  return orientation;
}

std::shared_ptr<const Image> takeRows(PixelSink& sink, const std::uint8_t* pixels, ImageSize size) {
  const std::size_t stride = static_cast<std::size_t>(size.width) * 4;
  for (int y = 0; y < size.height; ++y, pixels += stride) {
    std::memcpy(sink.nextRow(), pixels, stride);
    sink.take();
  }
  return sink.finish();
}

// On the canvas, whole: a frame by itself may be a part of the picture.
std::shared_ptr<const Image> firstFrame(const WebPData& file, ImageSize whole, ImageSize target,
                                        int orientation) {
  const std::unique_ptr<WebPAnimDecoder, decltype(&WebPAnimDecoderDelete)> decoder(
      WebPAnimDecoderNew(&file, nullptr), &WebPAnimDecoderDelete);
  std::uint8_t* canvas = nullptr;
  int time = 0;
  if (!decoder || WebPAnimDecoderGetNext(decoder.get(), &canvas, &time) == 0) return nullptr;
  PixelSink sink(whole, target, orientation);
  return sink.isUsable() ? takeRows(sink, canvas, whole) : nullptr;
}

std::shared_ptr<const Image> still(std::string_view bytes, ImageSize whole, ImageSize target,
                                   int orientation) {
  // Scaled on the way by the format's own scaler, so that the sink has only to turn it.
  PixelSink sink(target, target, orientation);
  if (!sink.isUsable()) return nullptr;
  const std::size_t stride = static_cast<std::size_t>(target.width) * 4;
  const std::size_t size = stride * static_cast<std::size_t>(target.height);
  std::unique_ptr<std::uint8_t[]> apart;
  if (orientation != uprightOrientation) {
    apart.reset(new (std::nothrow) std::uint8_t[size]);
    if (!apart) return nullptr;
  }
  WebPDecoderConfig config;
  if (WebPInitDecoderConfig(&config) == 0) return nullptr;
  config.options.use_scaling =
      static_cast<int>(target.width != whole.width || target.height != whole.height);
  config.options.scaled_width = target.width;
  config.options.scaled_height = target.height;
  config.output.colorspace = MODE_RGBA;
  config.output.is_external_memory = 1;
  config.output.u.RGBA = {apart ? apart.get() : sink.nextRow(), static_cast<int>(stride), size};
  const auto* data = reinterpret_cast<const std::uint8_t*>(bytes.data());
  // A file that ends early is refused here, as "not enough data".
  const bool decoded = WebPDecode(data, bytes.size(), &config) == VP8_STATUS_OK;
  WebPFreeDecBuffer(&config.output);
  if (!decoded) return nullptr;
  return apart ? takeRows(sink, apart.get(), target) : sink.finish();
}

}  // namespace

std::shared_ptr<const Image> decodeWebP(std::string_view bytes, const ImageWish& wish) {
  const WebPData file{reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()};
  WebPBitstreamFeatures features{};
  if (WebPGetFeatures(file.bytes, file.size, &features) != VP8_STATUS_OK) return nullptr;
  const ImageSize whole{features.width, features.height};
  if (!isWithin(wish.maximumPixels, whole)) return nullptr;
  const int orientation = orientationOf(file);
  const ImageSize target = storedTarget(whole, orientation, wish.fit);
  return features.has_animation != 0 ? firstFrame(file, whole, target, orientation)
                                     : still(bytes, whole, target, orientation);
}

}  // namespace paperloom::internal
