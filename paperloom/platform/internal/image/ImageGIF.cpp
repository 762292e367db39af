#include "paperloom/platform/internal/image/ImageGIF.h"

#include <gif_lib.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <new>
#include <optional>
#include <utility>

#include "paperloom/platform/internal/image/Orientation.h"

namespace paperloom::internal {
namespace {

struct CloseGIF {
  void operator()(GifFileType* file) const { DGifCloseFile(file, nullptr); }
};

int readGIF(GifFileType* file, GifByteType* to, int count) noexcept {
  auto& left = *static_cast<std::string_view*>(file->UserData);
  const std::size_t taken = std::min(left.size(), static_cast<std::size_t>(std::max(0, count)));
  std::memcpy(to, left.data(), taken);
  left.remove_prefix(taken);
  return static_cast<int>(taken);
}

// Reads an extension; of one that says how the next picture is drawn, which colour is clear.
bool takeExtension(GifFileType& file, int& clear) {
  int code = 0;
  GifByteType* block = nullptr;  // its length, then as many bytes
  if (DGifGetExtension(&file, &code, &block) != GIF_OK) return false;
  if (code == GRAPHICS_EXT_FUNC_CODE && block != nullptr && block[0] >= 4) {
    clear = (block[1] & 1) != 0 ? block[4] : NO_TRANSPARENT_COLOR;
  }
  while (block != nullptr) {
    if (DGifGetExtensionNext(&file, &block) != GIF_OK) return false;
  }
  return true;
}

// To the next frame, or past the last one; nothing where the file is broken or ends too early.
enum class Record { frame, end };
std::optional<Record> nextRecord(GifFileType& file, int& clear) {
  for (;;) {
    GifRecordType type = UNDEFINED_RECORD_TYPE;
    if (DGifGetRecordType(&file, &type) != GIF_OK) return std::nullopt;
    if (type == TERMINATE_RECORD_TYPE) return Record::end;
    if (type == IMAGE_DESC_RECORD_TYPE) {
      return DGifGetImageDesc(&file) == GIF_OK ? std::optional(Record::frame) : std::nullopt;
    }
    if (type != EXTENSION_RECORD_TYPE || !takeExtension(file, clear)) return std::nullopt;
  }
}

// The numbers of the frame's colours, row by row from the top. Null when the file ends before, or
// there is no memory.
std::unique_ptr<GifPixelType[]> readFrame(GifFileType& file) {
  const auto height = static_cast<std::size_t>(file.Image.Height);
  const auto width = static_cast<std::size_t>(file.Image.Width);
  std::unique_ptr<GifPixelType[]> rows(new (std::nothrow) GifPixelType[width * height]);
  if (!rows) return nullptr;
  const auto readEvery = [&](std::size_t step, std::size_t first) {
    for (std::size_t y = first; y < height; y += step) {
      if (DGifGetLine(&file, rows.get() + y * width, file.Image.Width) != GIF_OK) return false;
    }
    return true;
  };
  const bool isWhole = file.Image.Interlace ? readEvery(8, 0) && readEvery(8, 4) &&
                                                  readEvery(4, 2) && readEvery(2, 1)
                                            : readEvery(1, 0);
  return isWhole ? std::move(rows) : nullptr;
}

// Whether the rest of the file is there, whatever it shows.
bool endsProperly(GifFileType& file) {
  int clear = 0;
  for (;;) {
    const auto record = nextRecord(file, clear);
    if (!record || *record == Record::end) return record.has_value();
    int codeSize = 0;
    GifByteType* block = nullptr;
    if (DGifGetCode(&file, &codeSize, &block) != GIF_OK) return false;
    while (block != nullptr) {
      if (DGifGetCodeNext(&file, &block) != GIF_OK) return false;
    }
  }
}

// Red, green, blue and alpha of every number that a frame may hold; what has no colour is clear.
using Colours = std::array<std::array<std::uint8_t, 4>, 256>;
Colours coloursOf(const ColorMapObject& map, int clear) {
  Colours colours{};
  for (int i = 0; i < std::min(map.ColorCount, 256); ++i) {
    const GifColorType& colour = map.Colors[i];
    if (i != clear)
      colours[static_cast<std::size_t>(i)] = {colour.Red, colour.Green, colour.Blue, 255};
  }
  return colours;
}

}  // namespace

std::shared_ptr<const Image> decodeGIF(std::string_view bytes, const ImageWish& wish) {
  std::string_view left = bytes;
  const std::unique_ptr<GifFileType, CloseGIF> file(DGifOpen(&left, &readGIF, nullptr));
  if (!file) return nullptr;
  const ImageSize whole{file->SWidth, file->SHeight};
  int clear = NO_TRANSPARENT_COLOR;
  if (!isWithin(wish.maximumPixels, whole)) return nullptr;
  if (nextRecord(*file, clear) != Record::frame) return nullptr;
  const GifImageDesc frame = file->Image;
  if (!isWithin(wish.maximumPixels, {frame.Width, frame.Height})) return nullptr;
  const auto* map = frame.ColorMap != nullptr ? frame.ColorMap : file->SColorMap;
  if (map == nullptr) return nullptr;
  const Colours colours = coloursOf(*map, clear);
  const auto rows = readFrame(*file);
  if (!rows || !endsProperly(*file)) return nullptr;
  PixelSink sink(whole, storedTarget(whole, uprightOrientation, wish.fit), uprightOrientation);
  if (!sink.isUsable()) return nullptr;
  const int shown = std::clamp(whole.width - frame.Left, 0, frame.Width);
  for (int y = 0; y < whole.height; ++y) {
    std::uint8_t* const to = sink.nextRow();
    std::memset(to, 0, static_cast<std::size_t>(whole.width) * 4);
    if (y >= frame.Top && y - frame.Top < frame.Height) {
      const GifPixelType* row = rows.get() + std::ptrdiff_t{y - frame.Top} * frame.Width;
      for (int x = 0; x < shown; ++x) {
        std::memcpy(to + std::ptrdiff_t{frame.Left + x} * 4, colours[row[x]].data(), 4);
      }
    }
    sink.take();
  }
  return sink.finish();
}

}  // namespace paperloom::internal
