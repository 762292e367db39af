#include <gtest/gtest.h>
#include <png.h>
#include <sys/resource.h>
#include <webp/encode.h>
#include <zlib.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include "paperloom/platform/ImageDecoder.h"

#include <jpeglib.h>

namespace paperloom {
namespace {

constexpr int width = 24;
constexpr int height = 16;

using Pixel = std::vector<std::uint8_t>;

// Four even quarters, so that lossy formats give them back nearly unchanged.
struct Quarters {
  Pixel topLeft, topRight, bottomLeft, bottomRight;
};

std::vector<std::uint8_t> plane(const Quarters& quarters) {
  std::vector<std::uint8_t> bytes;
  for (int i = 0; i < width * height; ++i) {
    const bool left = i % width < width / 2;
    const Pixel& pixel = i < width * height / 2
                             ? (left ? quarters.topLeft : quarters.topRight)
                             : (left ? quarters.bottomLeft : quarters.bottomRight);
    bytes.insert(bytes.end(), pixel.begin(), pixel.end());
  }
  return bytes;
}
std::vector<std::uint8_t> plane(const Pixel& pixel) { return plane({pixel, pixel, pixel, pixel}); }

template <class Pixels>
std::string jpeg(J_COLOR_SPACE space, const Pixels& pixels, bool progressive) {
  jpeg_compress_struct info{};
  jpeg_error_mgr errors{};
  info.err = jpeg_std_error(&errors);
  jpeg_create_compress(&info);
  unsigned char* out = nullptr;
  unsigned long size = 0;
  jpeg_mem_dest(&info, &out, &size);
  info.image_width = width;
  info.image_height = height;
  auto bytes = plane(pixels);
  const std::size_t channels = bytes.size() / (width * height);
  info.input_components = static_cast<int>(channels);
  info.in_color_space = space;
  jpeg_set_defaults(&info);
  if (progressive) jpeg_simple_progression(&info);
  jpeg_start_compress(&info, TRUE);
  while (info.next_scanline < info.image_height) {
    JSAMPROW row = bytes.data() + info.next_scanline * width * channels;
    jpeg_write_scanlines(&info, &row, 1);
  }
  jpeg_finish_compress(&info);
  jpeg_destroy_compress(&info);
  std::string file(reinterpret_cast<char*>(out), size);
  std::free(out);
  return file;
}

// `palette` holds one RGB colour; without it the pixels are in `format`.
template <class Pixels>
std::string png(png_uint_32 format, const Pixels& pixels, const std::uint8_t* palette = nullptr) {
  png_image image{};
  image.version = PNG_IMAGE_VERSION;
  image.width = width;
  image.height = height;
  image.format = format;
  image.colormap_entries = palette == nullptr ? 0 : 1;
  const auto bytes = plane(pixels);
  png_alloc_size_t size = 0;
  png_image_write_to_memory(&image, nullptr, &size, 0, bytes.data(), 0, palette);
  std::string file(size, '\0');
  png_image_write_to_memory(&image, file.data(), &size, 0, bytes.data(), 0, palette);
  file.resize(size);
  return file;
}

template <class Pixels>
std::string webp(const Pixels& pixels, bool lossless) {
  const auto bytes = plane(pixels);
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
      {"JPEG", jpeg(JCS_RGB, Pixel{200, 100, 50}, false), {200, 100, 50, 255}},
      {"JPEG in passes", jpeg(JCS_RGB, Pixel{200, 100, 50}, true), {200, 100, 50, 255}},
      {"grey JPEG", jpeg(JCS_GRAYSCALE, Pixel{90}, false), {90, 90, 90, 255}},
      // Written with the Adobe marker, so the inks count inverted.
      {"JPEG of four inks", jpeg(JCS_CMYK, Pixel{200, 100, 50, 255}, false), {200, 100, 50, 255}},
      {"PNG", png(PNG_FORMAT_RGBA, Pixel{1, 2, 3, 77}), {1, 2, 3, 77}},
      {"grey PNG", png(PNG_FORMAT_GRAY, Pixel{90}), {90, 90, 90, 255}},
      {"PNG with a palette", png(PNG_FORMAT_RGB_COLORMAP, Pixel{0}, palette), {10, 200, 30, 255}},
      // Sixteen bits a channel hold linear light: full stays full and none stays none.
      {"deep PNG", png(PNG_FORMAT_LINEAR_RGB, Pixel{255, 255, 0, 0, 255, 255}), {255, 0, 255, 255}},
      {"WebP", webp(Pixel{200, 100, 50, 255}, false), {200, 100, 50, 255}},
      {"lossless WebP", webp(Pixel{1, 2, 3, 77}, true), {1, 2, 3, 77}},
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

std::string bigEndian(std::size_t number) {
  std::string bytes;
  for (int shift = 24; shift >= 0; shift -= 8) bytes.push_back(static_cast<char>(number >> shift));
  return bytes;
}
std::string littleEndian(std::size_t number) {
  const std::string bytes = bigEndian(number);
  return {bytes.rbegin(), bytes.rend()};
}

// An Exif block in the byte order of the odd orientations' cameras or of the others'.
std::string exif(int orientation) {
  using namespace std::string_literals;
  const char value = static_cast<char>(orientation);
  return orientation % 2 == 1
             ? "MM\0*\0\0\0\x08\0\x01\x01\x12\0\x03\0\0\0\x01\0"s + value + "\0\0\0\0\0\0"s
             : "II*\0\x08\0\0\0\x01\0\x12\x01\x03\0\x01\0\0\0"s + value + "\0\0\0\0\0\0\0"s;
}

std::string jpegWith(const std::string& block, const Quarters& quarters) {
  std::string file = jpeg(JCS_RGB, quarters, false);
  const std::string segment = std::string("Exif\0\0", 6) + block;
  return file.insert(2, "\xff\xe1" + bigEndian(segment.size() + 2).substr(2) + segment);
}
std::string pngWith(const std::string& block, const Quarters& quarters) {
  std::string file = png(PNG_FORMAT_RGB, quarters);
  const std::string chunk = "eXIf" + block;
  const auto sum =
      crc32(0, reinterpret_cast<const Bytef*>(chunk.data()), static_cast<uInt>(chunk.size()));
  return file.insert(file.size() - 12, bigEndian(block.size()) + chunk + bigEndian(sum));
}
std::string webpWith(const std::string& block, const Quarters& opaque) {
  Quarters quarters = opaque;
  for (Pixel* pixel :
       {&quarters.topLeft, &quarters.topRight, &quarters.bottomLeft, &quarters.bottomRight}) {
    pixel->push_back(255);
  }
  const std::string size =
      littleEndian(width - 1).substr(0, 3) + littleEndian(height - 1).substr(0, 3);
  const std::string chunks = "WEBPVP8X" + littleEndian(10) + "\x08" + std::string(3, '\0') + size +
                             webp(quarters, true).substr(12) + "EXIF" + littleEndian(block.size()) +
                             block;
  return "RIFF" + littleEndian(chunks.size()) + chunks;
}

using Corners = std::array<int, 4>;  // the red of top left, top right, bottom left, bottom right
Corners cornersOf(const Image& image) {
  const auto red = [&](int x, int y) {
    return int{image.pixels()[static_cast<std::size_t>(y * image.width() + x) * 4]};
  };
  const int right = image.width() - 1;
  const int bottom = image.height() - 1;
  return {red(0, 0), red(right, 0), red(0, bottom), red(right, bottom)};
}

TEST(Image, aPictureIsTurnedUprightAndFitsWhatWasAskedFor) {
  constexpr int a = 20, b = 90, c = 160, d = 230;
  const Quarters quarters{{a, a, a}, {b, b, b}, {c, c, c}, {d, d, d}};
  const std::array<Corners, 8> upright{{{a, b, c, d},
                                        {b, a, d, c},
                                        {d, c, b, a},
                                        {c, d, a, b},
                                        {a, c, b, d},
                                        {c, a, d, b},
                                        {d, b, c, a},
                                        {b, d, a, c}}};
  struct Row {
    ImageSize maximum, lying, standing;  // standing: of a picture that lies on its side in the file
  };
  const std::array<Row, 6> rows{{{{24, 24}, {24, 16}, {16, 24}},
                                 {{99, 99}, {24, 16}, {16, 24}},
                                 {{12, 12}, {12, 8}, {8, 12}},
                                 {{7, 99}, {7, 5}, {7, 11}},
                                 {{99, 5}, {8, 5}, {3, 5}},
                                 {{2, 2}, {2, 1}, {1, 2}}}};
  for (int orientation = 1; orientation <= 8; ++orientation) {
    for (const auto& with : {jpegWith, pngWith, webpWith}) {
      const std::string file = with(exif(orientation), quarters);
      const StandardImageDecoder decoder;
      const auto whole = decoder.decode(file);
      ASSERT_TRUE(whole) << orientation;
      for (const Row& row : rows) {
        SCOPED_TRACE("orientation " + std::to_string(orientation) + " in " + file.substr(0, 4) +
                     " within " + std::to_string(row.maximum.width) + "x" +
                     std::to_string(row.maximum.height));
        const auto image = decoder.decodeToFit(file, row.maximum);
        ASSERT_TRUE(image);
        const ImageSize size = orientation < 5 ? row.lying : row.standing;
        EXPECT_EQ(image->width(), size.width);
        EXPECT_EQ(image->height(), size.height);
        if (size.width < 3 || size.height < 3) continue;
        const Corners expected = upright[static_cast<std::size_t>(orientation - 1)];
        const Corners seen = cornersOf(*image);
        for (std::size_t i = 0; i < seen.size(); ++i)
          EXPECT_NEAR(seen[i], expected[i], 6) << "corner " << i;
      }
      EXPECT_EQ(whole->width(), orientation < 5 ? width : height);
    }
  }
}

TEST(Image, aDamagedOrientationTagIsIgnored) {
  const Quarters quarters{{20, 20, 20}, {90, 90, 90}, {160, 160, 160}, {230, 230, 230}};
  std::vector<std::string> blocks;
  for (std::size_t length = 0; length < 20; ++length) blocks.push_back(exif(6).substr(0, length));
  for (const auto& [at, value] : std::vector<std::pair<std::size_t, char>>{{0, 'M'},
                                                                           {2, 'x'},
                                                                           {4, '\xff'},
                                                                           {7, '\xff'},
                                                                           {12, '\x04'},
                                                                           {18, '\0'},
                                                                           {18, '\x09'},
                                                                           {19, '\x01'}}) {
    blocks.push_back(exif(6));
    blocks.back()[at] = value;
  }
  for (const std::string& block : blocks) {
    const auto image = StandardImageDecoder().decode(jpegWith(block, quarters));
    ASSERT_TRUE(image);
    EXPECT_EQ(image->width(), width) << ::testing::PrintToString(block);
  }
}

TEST(Image, scalingMixesColoursByTheirOpacity) {
  const Quarters quarters{{255, 0, 0, 255}, {0, 255, 0, 0}, {255, 0, 0, 255}, {0, 255, 0, 0}};
  struct OnlyWhole final : ImageDecoder {
    std::shared_ptr<const Image> decode(std::string_view bytes) const override {
      return StandardImageDecoder().decode(bytes);
    }
  };
  for (const std::string& file : {png(PNG_FORMAT_RGBA, quarters), webp(quarters, true)}) {
    const auto image = StandardImageDecoder().decodeToFit(file, {1, 1});
    ASSERT_TRUE(image);
    EXPECT_NEAR(image->pixels()[3], 128, 2);
    EXPECT_NEAR(image->pixels()[0], 255, 2);
    EXPECT_NEAR(image->pixels()[1], 0, 2);
    const auto scaledAfterwards = OnlyWhole().decodeToFit(file, {1, 1});
    ASSERT_TRUE(scaledAfterwards);
    EXPECT_EQ(scaledAfterwards->width() * scaledAfterwards->height(), 1);
    EXPECT_NEAR(scaledAfterwards->pixels()[0], 255, 2);
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
  std::string file = jpeg(JCS_RGB, Pixel{1, 2, 3}, false);
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
  std::string file = jpeg(JCS_RGB, Pixel{1, 2, 3}, true);
  const auto lastScan = file.rfind("\xff\xda");
  const std::string scan = file.substr(lastScan, file.size() - 2 - lastScan);
  for (int i = 0; i < 200; ++i) file.insert(file.size() - 2, scan);
  EXPECT_FALSE(ImageDecoder::current()->decode(file));
}

}  // namespace
}  // namespace paperloom
