#include "paperloom/platform/internal/image/PixelSink.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <utility>

#include "paperloom/platform/internal/image/Orientation.h"

namespace paperloom::internal {
namespace {

constexpr std::int64_t channels = 4;
// The channels of a pixel, which the processor works on at once.
using Pixel = float __attribute__((vector_size(16)));

Pixel weighted(const std::uint8_t* bytes, float weight) {
  using Bytes = std::uint8_t __attribute__((vector_size(4)));
  Bytes whole;
  std::memcpy(&whole, bytes, sizeof whole);
  Pixel pixel = __builtin_convertvector(whole, Pixel);
  const float alpha = pixel[3] * weight;
  pixel[3] = 1;
  return pixel * alpha;
}
constexpr int firstOnItsSide = 5;

template <class T>
std::unique_ptr<T[]> room(std::int64_t count) {
  return std::unique_ptr<T[]>(new (std::nothrow) T[static_cast<std::size_t>(count)]);
}

std::int64_t rounded(std::int64_t a, std::int64_t b) { return (a + b / 2) / b; }

ImageSize turned(ImageSize size, int orientation) {
  if (orientation >= firstOnItsSide) std::swap(size.width, size.height);
  return size;
}

}  // namespace

bool isWithin(std::int64_t maximumPixels, ImageSize size) {
  return size.width > 0 && size.height > 0 && size.width <= maximumPixels / size.height;
}

ImageSize storedTarget(ImageSize stored, int orientation, const std::optional<ImageSize>& fit) {
  if (!fit) return stored;
  const ImageSize most = turned({std::max(fit->width, 1), std::max(fit->height, 1)}, orientation);
  if (stored.width <= most.width && stored.height <= most.height) return stored;
  const std::int64_t width = stored.width;
  const std::int64_t height = stored.height;
  ImageSize target = most;
  if (width * most.height >= height * most.width) {
    target.height =
        static_cast<int>(std::max<std::int64_t>(1, rounded(height * most.width, width)));
  } else {
    target.width =
        static_cast<int>(std::max<std::int64_t>(1, rounded(width * most.height, height)));
  }
  return target;
}

PixelSink::PixelSink(ImageSize source, ImageSize target, int orientation)
    : source_(source),
      target_(target),
      turned_(orientation >= firstOnItsSide),
      scaled_(source.width != target.width || source.height != target.height),
      direct_(!scaled_ && orientation == uprightOrientation) {
  const std::int64_t width = target.width;
  const std::int64_t height = target.height;
  const std::int64_t stride = turned_ ? height : width;
  stepX_ = turned_ ? stride : 1;
  stepY_ = turned_ ? 1 : stride;
  const bool mirrorsX = orientation == 2 || orientation == 3 || orientation >= 7;
  const bool mirrorsY =
      orientation == 3 || orientation == 4 || orientation == 6 || orientation == 7;
  if (mirrorsX) origin_ += (width - 1) * std::exchange(stepX_, -stepX_);
  if (mirrorsY) origin_ += (height - 1) * std::exchange(stepY_, -stepY_);

  auto pixels = room<std::uint8_t>(width * height * channels);
  if (!direct_) {
    row_ = room<std::uint8_t>(source.width * channels);
    if (!row_) return;
  }
  if (scaled_) {
    columns_ = room<float>(width * channels);
    sums_ = room<float>(width * channels);
    if (!columns_ || !sums_) return;
    std::fill_n(sums_.get(), width * channels, 0.0F);
  }
  pixels_ = std::move(pixels);
}

std::uint8_t* PixelSink::nextRow() {
  return direct_ ? pixels_.get() + y_ * std::int64_t{target_.width} * channels : row_.get();
}

void PixelSink::take() {
  const std::int64_t y = y_++;
  if (direct_) return;
  if (!scaled_) return writeRow();
  sumColumns();
  // In units of which the source's rows are target_.height tall and the target's source_.height:
  // a row of the source belongs to one row of the target or to two.
  const std::int64_t top = y * target_.height;
  const std::int64_t bottom = top + target_.height;
  for (std::int64_t begin = top; begin < bottom;) {
    const std::int64_t edge = (targetY_ + std::int64_t{1}) * source_.height;
    const std::int64_t end = std::min(bottom, edge);
    addRow(end - begin);
    if (end == edge) writeRow();
    begin = end;
  }
}

void PixelSink::sumColumns() {
  const std::uint8_t* pixel = row_.get();
  float* sum = columns_.get();
  // In units like those of take().
  std::int64_t position = 0;
  std::int64_t pixelEnd = target_.width;
  for (int x = 0; x < target_.width; ++x, sum += channels) {
    const std::int64_t end = (x + std::int64_t{1}) * source_.width;
    Pixel total{};
    while (position < end) {
      const std::int64_t stop = std::min(end, pixelEnd);
      total += weighted(pixel, static_cast<float>(stop - position));
      position = stop;
      if (stop == pixelEnd) {
        pixel += channels;
        pixelEnd += target_.width;
      }
    }
    std::memcpy(sum, &total, sizeof total);
  }
}

void PixelSink::addRow(std::int64_t weight) {
  const auto factor = static_cast<float>(weight);
  const auto count = static_cast<std::size_t>(target_.width * channels);
  for (std::size_t i = 0; i < count; ++i) sums_[i] += factor * columns_[i];
}

void PixelSink::writeRow() {
  std::uint8_t* place = pixels_.get() + (origin_ + targetY_ * stepY_) * channels;
  const float area = static_cast<float>(source_.width) * static_cast<float>(source_.height);
  for (std::int64_t x = 0; x < target_.width; ++x, place += stepX_ * channels) {
    if (!scaled_) {
      std::memcpy(place, row_.get() + x * channels, channels);
      continue;
    }
    float* sum = sums_.get() + x * channels;
    const float share = sum[3] > 0 ? 1 / sum[3] : 0;
    for (int channel = 0; channel < 3; ++channel) {
      place[channel] = static_cast<std::uint8_t>(std::min(sum[channel] * share + 0.5F, 255.0F));
    }
    place[3] = static_cast<std::uint8_t>(std::min(sum[3] / area + 0.5F, 255.0F));
    std::fill_n(sum, channels, 0.0F);
  }
  ++targetY_;
}

std::shared_ptr<const Image> PixelSink::finish() {
  const ImageSize size = turned_ ? ImageSize{target_.height, target_.width} : target_;
  return std::make_shared<const Image>(size.width, size.height, std::move(pixels_));
}

}  // namespace paperloom::internal
