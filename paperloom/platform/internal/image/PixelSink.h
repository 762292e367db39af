#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "paperloom/platform/Image.h"

namespace paperloom::internal {

// What a decoder is asked for.
struct ImageWish {
  std::int64_t maximumPixels = 0;  // a file that claims more is refused
  std::optional<ImageSize> fit{};  // of the upright picture; its own size without it
};

// Whether a picture of that size may be decoded.
bool isWithin(std::int64_t maximumPixels, ImageSize size);

// The size to give a stored picture so that it fits when it has been turned upright.
ImageSize storedTarget(ImageSize stored, int orientation, const std::optional<ImageSize>& fit);

// Takes the rows of a picture from the top (red, green, blue, alpha) and makes an image of them,
// turned upright and scaled down by averaging areas, colours weighted by their alpha. Beside the
// result it needs memory for a row. Throws nothing.
class PixelSink {
 public:
  // `target` is not larger than `source`. Not usable when there is no memory.
  PixelSink(ImageSize source, ImageSize target, int orientation);
  bool isUsable() const { return pixels_ != nullptr; }

  // Where a decoder puts the next row before it calls take().
  std::uint8_t* nextRow();
  void take();

  // The image, once every row has been taken.
  std::shared_ptr<const Image> finish();

 private:
  void sumColumns();
  void addRow(std::int64_t weight);
  void writeRow();

  const ImageSize source_;
  const ImageSize target_;
  const bool turned_;  // on its side
  const bool scaled_;
  const bool direct_;
  // Where the pixels of the target lie in the upright image, in pixels.
  std::int64_t origin_ = 0;
  std::int64_t stepX_ = 1;
  std::int64_t stepY_ = 1;

  std::unique_ptr<std::uint8_t[]> pixels_;
  std::unique_ptr<std::uint8_t[]> row_;  // of the source, unless rows go straight to their place
  std::unique_ptr<float[]> columns_;     // the row's sums for each pixel of the target
  std::unique_ptr<float[]> sums_;
  int y_ = 0;        // rows taken
  int targetY_ = 0;  // rows written
};

}  // namespace paperloom::internal
