#pragma once

#include <cstdint>
#include <memory>
#include <string_view>

#include "paperloom/platform/Export.h"
#include "paperloom/platform/Image.h"

namespace paperloom {

// Turns the bytes of a picture into pixels. The library asks the current decoder for every image
// that it loads; a host with a decoder of its own puts it in place. Called on any thread, several
// at a time.
class PAPERLOOM_EXPORT ImageDecoder {
 public:
  virtual ~ImageDecoder() = default;

  // Null when the bytes are no whole image that this decoder reads. Throws nothing.
  virtual std::shared_ptr<const Image> decode(std::string_view bytes) const = 0;

  // The same, no larger than `maximum` (a side below 1 counts as 1): the largest size that fits
  // with the proportions kept; a picture that fits already keeps its size. Here it scales what
  // decode() gives; a decoder that can scale on the way overrides it.
  virtual std::shared_ptr<const Image> decodeToFit(std::string_view bytes, ImageSize maximum) const;

  // The decoder in use, a StandardImageDecoder at first.
  static std::shared_ptr<const ImageDecoder> current();
  // Null puts the first one back.
  static void setCurrent(std::shared_ptr<const ImageDecoder> decoder);
};

// Reads JPEG, PNG, WebP and GIF, told apart by their first bytes, and refuses truncated files; of
// an animation it gives the first frame. The picture is turned upright by its orientation tag (Exif
// 0x0112, in PNG its eXIf chunk), and a damaged tag is ignored. Colours are taken as they stand: no
// colour profile is applied. Scaling happens on the way, so that it needs the memory of the result,
// but for pictures that come in passes.
class PAPERLOOM_EXPORT StandardImageDecoder final : public ImageDecoder {
 public:
  static constexpr std::int64_t defaultMaximumPixels = 50'000'000;

  // An image whose header claims more pixels is refused before memory is taken for them.
  explicit StandardImageDecoder(std::int64_t maximumPixels = defaultMaximumPixels)
      : maximumPixels_(maximumPixels) {}

  std::shared_ptr<const Image> decode(std::string_view bytes) const override;
  std::shared_ptr<const Image> decodeToFit(std::string_view bytes,
                                           ImageSize maximum) const override;

 private:
  std::int64_t maximumPixels_;
};

}  // namespace paperloom
