#include <png.h>

#include "paperloom/platform/internal/image/ImageFormats.h"

namespace paperloom::internal {
namespace {

// Whether the chunks follow each other up to the closing one (PNG, second edition, section 5). The
// library itself stops reading after the last row.
bool reachesEnd(std::string_view bytes) {
  std::size_t position = 8;
  while (position < bytes.size() && bytes.size() - position >= 12) {
    std::size_t length = 0;
    for (std::size_t i = 0; i < 4; ++i) {
      length = length << 8 | static_cast<unsigned char>(bytes[position + i]);
    }
    if (length > bytes.size() - position - 12) return false;
    if (bytes.substr(position + 4, 4) == "IEND") return true;
    position += length + 12;
  }
  return false;
}

}  // namespace

std::shared_ptr<const Image> decodePNG(std::string_view bytes, std::int64_t maximumPixels) {
  if (!reachesEnd(bytes)) return nullptr;
  png_image header{};
  header.version = PNG_IMAGE_VERSION;
  if (png_image_begin_read_from_memory(&header, bytes.data(), bytes.size()) == 0) return nullptr;
  auto pixels = pixelBuffer(header.width, header.height, maximumPixels);
  if (!pixels) {
    png_image_free(&header);
    return nullptr;
  }
  const int width = static_cast<int>(header.width);
  const int height = static_cast<int>(header.height);
  header.format = PNG_FORMAT_RGBA;
  // Finishing frees what reading took, with success and without.
  if (png_image_finish_read(&header, nullptr, pixels.get(), 0, nullptr) == 0) return nullptr;
  return std::make_shared<const Image>(width, height, std::move(pixels));
}

}  // namespace paperloom::internal
