#include "paperloom/platform/internal/image/ImagePNG.h"

#include <png.h>

#include <csetjmp>
#include <cstring>
#include <new>
#include <optional>

#include "paperloom/platform/internal/image/Orientation.h"

namespace paperloom::internal {
namespace {

// What must survive the jump out of the library lives here, outside the jumped frames.
struct DecodingPNG {
  std::string_view unread;
  png_structp png = nullptr;
  png_infop info = nullptr;
  std::optional<PixelSink> sink;
  std::unique_ptr<std::uint8_t[]> interlaced;  // the whole picture, which comes in passes
};

// The picture's orientation, or nothing when the chunks do not follow each other up to the closing
// one (PNG, third edition, section 5). The library itself stops reading after the last row.
std::optional<int> orientationOfWhole(std::string_view bytes) {
  int orientation = uprightOrientation;
  std::size_t position = 8;
  while (position < bytes.size() && bytes.size() - position >= 12) {
    std::size_t length = 0;
    for (std::size_t i = 0; i < 4; ++i) {
      length = length << 8 | static_cast<unsigned char>(bytes[position + i]);
    }
    if (length > bytes.size() - position - 12) return std::nullopt;
    const std::string_view type = bytes.substr(position + 4, 4);
    if (type == "IEND") return orientation;
    if (type == "eXIf") orientation = orientationFromExif(bytes.substr(position + 8, length));
    position += length + 12;
  }
  return std::nullopt;
}

// The library asks for what it needs next; a file that has less is cut.
void onRead(png_structp png, png_bytep out, std::size_t size) {
  auto& unread = static_cast<DecodingPNG*>(png_get_io_ptr(png))->unread;
  if (size > unread.size()) png_error(png, "cut");
  std::memcpy(out, unread.data(), size);
  unread.remove_prefix(size);
}

[[noreturn]] void onError(png_structp png, png_const_charp) { png_longjmp(png, 1); }
void onWarning(png_structp, png_const_charp) {}

// Every kind of pixel becomes red, green, blue and alpha of a byte each, as on a screen.
void askForBytes(png_structp png) {
  png_set_alpha_mode(png, PNG_ALPHA_PNG, PNG_DEFAULT_sRGB);
  png_set_expand(png);
  png_set_scale_16(png);
  png_set_gray_to_rgb(png);
  png_set_add_alpha(png, 0xFF, PNG_FILLER_AFTER);
}

// No object with a destructor may live in this frame: the library's errors jump across it.
bool run(DecodingPNG& state, int orientation, const ImageWish& wish) {
  png_structp png = state.png;
  if (setjmp(png_jmpbuf(png)) != 0) return false;
  png_set_read_fn(png, &state, onRead);
  png_read_info(png, state.info);
  const ImageSize whole{static_cast<int>(png_get_image_width(png, state.info)),
                        static_cast<int>(png_get_image_height(png, state.info))};
  if (!isWithin(wish.maximumPixels, whole)) return false;
  PixelSink& sink =
      state.sink.emplace(whole, storedTarget(whole, orientation, wish.fit), orientation);
  if (!sink.isUsable()) return false;
  askForBytes(png);
  const int passes = png_set_interlace_handling(png);
  png_read_update_info(png, state.info);
  const std::size_t stride = static_cast<std::size_t>(whole.width) * 4;
  if (png_get_rowbytes(png, state.info) != stride) return false;

  // The last row is complete only with the last pass.
  if (passes > 1) {
    const std::size_t size = stride * static_cast<std::size_t>(whole.height);
    state.interlaced.reset(new (std::nothrow) std::uint8_t[size]);
    if (!state.interlaced) return false;
    std::memset(state.interlaced.get(), 0, size);
  }
  for (int pass = 0; pass < passes; ++pass) {
    for (int y = 0; y < whole.height; ++y) {
      std::uint8_t* kept =
          state.interlaced.get() + (passes > 1 ? stride * static_cast<std::size_t>(y) : 0);
      png_read_row(png, passes > 1 ? kept : sink.nextRow(), nullptr);
      if (pass + 1 < passes) continue;
      if (passes > 1) std::memcpy(sink.nextRow(), kept, stride);
      sink.take();
    }
  }
  png_read_end(png, nullptr);
  return true;
}

}  // namespace

std::shared_ptr<const Image> decodePNG(std::string_view bytes, const ImageWish& wish) {
  const auto orientation = orientationOfWhole(bytes);
  if (!orientation) return nullptr;
  DecodingPNG state;
  state.unread = bytes;
  state.png = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, onError, onWarning);
  if (state.png == nullptr) return nullptr;
  state.info = png_create_info_struct(state.png);
  const bool whole = state.info != nullptr && run(state, *orientation, wish);
  png_destroy_read_struct(&state.png, &state.info, nullptr);
  return whole ? state.sink->finish() : nullptr;
}

}  // namespace paperloom::internal
