#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <utility>

namespace paperloom {

// In pixels.
struct ImageSize {
  int width = 0;
  int height = 0;
};

// A decoded picture: immutable pixels, four bytes each (red, green, blue, alpha; alpha not
// multiplied in), rows from the top without padding. Safe to read from any thread.
class Image {
 public:
  // `pixels` holds width * height * 4 bytes; both sides are positive.
  Image(int width, int height, std::unique_ptr<const std::uint8_t[]> pixels)
      : width_(width), height_(height), pixels_(std::move(pixels)) {}

  int width() const { return width_; }
  int height() const { return height_; }
  std::span<const std::uint8_t> pixels() const {
    return {pixels_.get(),
            static_cast<std::size_t>(width_) * static_cast<std::size_t>(height_) * 4};
  }

 private:
  int width_;
  int height_;
  std::unique_ptr<const std::uint8_t[]> pixels_;
};

}  // namespace paperloom
