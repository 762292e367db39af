#include <gtest/gtest.h>
#include <png.h>
#include <sys/resource.h>
#include <webp/encode.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "paperloom/platform/ImageDecoder.h"

#include <jpeglib.h>

namespace paperloom {
namespace {

constexpr int width = 24;
constexpr int height = 16;

// One even colour, so that lossy formats give it back nearly unchanged.
std::vector<std::uint8_t> plane(std::initializer_list<std::uint8_t> pixel) {
  std::vector<std::uint8_t> bytes;
  for (int i = 0; i < width * height; ++i) bytes.insert(bytes.end(), pixel);
  return bytes;
}

std::string jpeg(J_COLOR_SPACE space, std::initializer_list<std::uint8_t> pixel, bool progressive) {
  jpeg_compress_struct info{};
  jpeg_error_mgr errors{};
  info.err = jpeg_std_error(&errors);
  jpeg_create_compress(&info);
  unsigned char* out = nullptr;
  unsigned long size = 0;
  jpeg_mem_dest(&info, &out, &size);
  info.image_width = width;
  info.image_height = height;
  info.input_components = static_cast<int>(pixel.size());
  info.in_color_space = space;
  jpeg_set_defaults(&info);
  if (progressive) jpeg_simple_progression(&info);
  jpeg_start_compress(&info, TRUE);
  auto bytes = plane(pixel);
  while (info.next_scanline < info.image_height) {
    JSAMPROW row = bytes.data() + info.next_scanline * width * pixel.size();
    jpeg_write_scanlines(&info, &row, 1);
  }
  jpeg_finish_compress(&info);
  jpeg_destroy_compress(&info);
  std::string file(reinterpret_cast<char*>(out), size);
  std::free(out);
  return file;
}

// `palette` holds one RGB colour; without it the pixels are in `format`.
std::string png(png_uint_32 format, std::initializer_list<std::uint8_t> pixel,
                const std::uint8_t* palette = nullptr) {
  png_image image{};
  image.version = PNG_IMAGE_VERSION;
  image.width = width;
  image.height = height;
  image.format = format;
  image.colormap_entries = palette == nullptr ? 0 : 1;
  const auto bytes = plane(pixel);
  png_alloc_size_t size = 0;
  png_image_write_to_memory(&image, nullptr, &size, 0, bytes.data(), 0, palette);
  std::string file(size, '\0');
  png_image_write_to_memory(&image, file.data(), &size, 0, bytes.data(), 0, palette);
  file.resize(size);
  return file;
}

std::string webp(std::initializer_list<std::uint8_t> pixel, bool lossless) {
  const auto bytes = plane(pixel);
  std::uint8_t* out = nullptr;
  const std::size_t size =
      lossless ? WebPEncodeLosslessRGBA(bytes.data(), width, height, width * 4, &out)
               : WebPEncodeRGBA(bytes.data(), width, height, width * 4, 90, &out);
  std::string file(reinterpret_cast<char*>(out), size);
  WebPFree(out);
  return file;
}

struct Sample {
  const char* name;
  std::string file;
  std::array<int, 4> colour;
};

std::vector<Sample> samples() {
  static constexpr std::uint8_t palette[] = {10, 200, 30};
  return {
      {"JPEG", jpeg(JCS_RGB, {200, 100, 50}, false), {200, 100, 50, 255}},
      {"JPEG in passes", jpeg(JCS_RGB, {200, 100, 50}, true), {200, 100, 50, 255}},
      {"grey JPEG", jpeg(JCS_GRAYSCALE, {90}, false), {90, 90, 90, 255}},
      // Written with the Adobe marker, so the inks count inverted.
      {"JPEG of four inks", jpeg(JCS_CMYK, {200, 100, 50, 255}, false), {200, 100, 50, 255}},
      {"PNG", png(PNG_FORMAT_RGBA, {1, 2, 3, 77}), {1, 2, 3, 77}},
      {"grey PNG", png(PNG_FORMAT_GRAY, {90}), {90, 90, 90, 255}},
      {"PNG with a palette", png(PNG_FORMAT_RGB_COLORMAP, {0}, palette), {10, 200, 30, 255}},
      // Sixteen bits a channel hold linear light: full stays full and none stays none.
      {"deep PNG", png(PNG_FORMAT_LINEAR_RGB, {255, 255, 0, 0, 255, 255}), {255, 0, 255, 255}},
      {"WebP", webp({200, 100, 50, 255}, false), {200, 100, 50, 255}},
      {"lossless WebP", webp({1, 2, 3, 77}, true), {1, 2, 3, 77}},
  };
}

TEST(Image, everyFormatAndColourModelBecomesRedGreenBlueAlpha) {
  for (const Sample& sample : samples()) {
    SCOPED_TRACE(sample.name);
    const auto image = ImageDecoder::current()->decode(sample.file);
    ASSERT_TRUE(image);
    EXPECT_EQ(image->width(), width);
    EXPECT_EQ(image->height(), height);
    for (std::size_t i = 0; i < image->pixels().size(); ++i) {
      ASSERT_NEAR(image->pixels()[i], sample.colour[i % 4], 4) << "byte " << i;
    }
  }
}

TEST(Image, anImageCutAnywhereIsNone) {
  for (const Sample& sample : samples()) {
    SCOPED_TRACE(sample.name);
    for (std::size_t length = 0; length < sample.file.size(); ++length) {
      EXPECT_FALSE(ImageDecoder::current()->decode(std::string_view(sample.file).substr(0, length)))
          << "cut at " << length << " of " << sample.file.size();
    }
  }
}

TEST(Image, aHeaderThatClaimsTooManyPixelsIsRefusedBeforeMemoryIsTaken) {
  rusage before{};
  getrusage(RUSAGE_SELF, &before);
  std::string file = jpeg(JCS_RGB, {1, 2, 3}, false);
  // Height and width stand, two bytes each, 5 bytes into the frame header.
  const auto frame = file.find("\xff\xc0");
  ASSERT_NE(frame, std::string::npos);
  file.replace(frame + 5, 4, std::string("\xea\x60\xea\x60"));
  EXPECT_FALSE(ImageDecoder::current()->decode(file));
  rusage after{};
  getrusage(RUSAGE_SELF, &after);
  EXPECT_LT(after.ru_maxrss - before.ru_maxrss, 64 * 1024);

  for (const Sample& sample : samples()) {
    EXPECT_TRUE(StandardImageDecoder(width * height).decode(sample.file)) << sample.name;
    EXPECT_FALSE(StandardImageDecoder(width * height - 1).decode(sample.file)) << sample.name;
  }
}

TEST(Image, aPictureOfThousandsOfPassesIsGivenUp) {
  std::string file = jpeg(JCS_RGB, {1, 2, 3}, true);
  const auto lastScan = file.rfind("\xff\xda");
  const std::string scan = file.substr(lastScan, file.size() - 2 - lastScan);
  for (int i = 0; i < 200; ++i) file.insert(file.size() - 2, scan);
  EXPECT_FALSE(ImageDecoder::current()->decode(file));
}

}  // namespace
}  // namespace paperloom
