#include <csetjmp>
#include <cstdio>
#include <optional>

// The library's header needs FILE and size_t before it.
#include <jpeglib.h>

#include "paperloom/platform/internal/image/ImageJPEG.h"
#include "paperloom/platform/internal/image/Orientation.h"

#include <jerror.h>

namespace paperloom::internal {
namespace {

// A file of a few hundred bytes can ask for thousands of passes over a large picture.
constexpr int maximumScans = 100;
constexpr long maximumWorkingMemory = 512L * 1024 * 1024;

// Everything that must survive the jump out of the library lives here, outside the jumped frames.
struct DecodingJPEG {
  jpeg_decompress_struct info{};
  jpeg_error_mgr errors{};
  jpeg_progress_mgr progress{};
  std::jmp_buf failure{};
  std::optional<PixelSink> sink;
};

DecodingJPEG& decoding(j_common_ptr info) { return *static_cast<DecodingJPEG*>(info->client_data); }

[[noreturn]] void fail(j_common_ptr info) { std::longjmp(decoding(info).failure, 1); }

void onMessage(j_common_ptr info, int level) {
  const int code = info->err->msg_code;
  // The library fills what is missing with grey; an image cut short is none here.
  if (level < 0 && (code == JWRN_JPEG_EOF || code == JWRN_HIT_MARKER)) fail(info);
}

void onOutput(j_common_ptr) {}

void onProgress(j_common_ptr info) {
  if (decoding(info).info.input_scan_number > maximumScans) fail(info);
}

// Four ink bytes become red, green, blue and alpha in place. Files with an Adobe marker keep the
// inks inverted.
void convertInks(std::uint8_t* row, int width, bool inverted) {
  for (int x = 0; x < width; ++x, row += 4) {
    const int black = inverted ? row[3] : 255 - row[3];
    for (int channel = 0; channel < 3; ++channel) {
      const int ink = inverted ? row[channel] : 255 - row[channel];
      row[channel] = static_cast<std::uint8_t>(ink * black / 255);
    }
    row[3] = 255;
  }
}

int orientationOf(const jpeg_decompress_struct& info) {
  for (auto* marker = info.marker_list; marker != nullptr; marker = marker->next) {
    const std::string_view block(reinterpret_cast<const char*>(marker->data), marker->data_length);
    if (block.starts_with("Exif")) return orientationFromExif(block);
  }
  return uprightOrientation;
}

// The least of the fast reductions that the format knows by itself and that leaves enough.
void reduce(jpeg_decompress_struct& info, ImageSize target) {
  info.scale_denom = 8;
  for (const unsigned scale : {1U, 2U, 4U, 8U}) {
    info.scale_num = scale;
    jpeg_calc_output_dimensions(&info);
    if (info.output_width >= static_cast<unsigned>(target.width) &&
        info.output_height >= static_cast<unsigned>(target.height)) {
      return;
    }
  }
}

// No object with a destructor may live in this frame: the library's errors jump across it.
bool run(DecodingJPEG& state, const unsigned char* bytes, std::size_t size, const ImageWish& wish) {
  jpeg_decompress_struct& info = state.info;
  if (setjmp(state.failure) != 0) return false;
  jpeg_create_decompress(&info);
  info.mem->max_memory_to_use = maximumWorkingMemory;
  info.progress = &state.progress;
  // Every read below may jump back to the line above.
  jpeg_mem_src(&info, bytes, size);
  jpeg_save_markers(&info, JPEG_APP0 + 1, 0xFFFF);
  jpeg_read_header(&info, TRUE);

  const ImageSize whole{static_cast<int>(info.image_width), static_cast<int>(info.image_height)};
  if (!isWithin(wish.maximumPixels, whole)) return false;
  const int orientation = orientationOf(info);
  const ImageSize target = storedTarget(whole, orientation, wish.fit);
  // The last step to the size that was asked for is the sink's.
  reduce(info, target);
  const ImageSize source{static_cast<int>(info.output_width), static_cast<int>(info.output_height)};
  PixelSink& sink = state.sink.emplace(source, target, orientation);
  if (!sink.isUsable()) return false;

  const bool inks = info.jpeg_color_space == JCS_CMYK || info.jpeg_color_space == JCS_YCCK;
  info.out_color_space = inks ? JCS_CMYK : JCS_EXT_RGBA;
  jpeg_start_decompress(&info);
  while (info.output_scanline < info.output_height) {
    JSAMPROW row = sink.nextRow();
    if (jpeg_read_scanlines(&info, &row, 1) != 1) return false;
    if (inks) convertInks(row, source.width, info.saw_Adobe_marker == TRUE);
    sink.take();
  }
  jpeg_finish_decompress(&info);
  return true;
}

}  // namespace

std::shared_ptr<const Image> decodeJPEG(std::string_view bytes, const ImageWish& wish) {
  DecodingJPEG state;
  state.info.err = jpeg_std_error(&state.errors);
  state.info.client_data = &state;
  state.errors.error_exit = fail;
  state.errors.emit_message = onMessage;
  state.errors.output_message = onOutput;
  state.progress.progress_monitor = onProgress;
  const bool whole =
      run(state, reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size(), wish);
  jpeg_destroy_decompress(&state.info);
  return whole ? state.sink->finish() : nullptr;
}

}  // namespace paperloom::internal
