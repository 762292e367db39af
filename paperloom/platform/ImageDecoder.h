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

  // The decoder in use, a StandardImageDecoder at first.
  static std::shared_ptr<const ImageDecoder> current();
  // Null puts the first one back.
  static void setCurrent(std::shared_ptr<const ImageDecoder> decoder);
};

// Reads JPEG, PNG and WebP stills, told apart by their first bytes, and refuses truncated ones.
// Colours are taken as they stand: no colour profile and no orientation tag is applied.
class PAPERLOOM_EXPORT StandardImageDecoder final : public ImageDecoder {
 public:
  static constexpr std::int64_t defaultMaximumPixels = 50'000'000;

  // An image whose header claims more pixels is refused before memory is taken for them.
  explicit StandardImageDecoder(std::int64_t maximumPixels = defaultMaximumPixels)
      : maximumPixels_(maximumPixels) {}

  std::shared_ptr<const Image> decode(std::string_view bytes) const override;

 private:
  std::int64_t maximumPixels_;
};

}  // namespace paperloom
