#include <gtest/gtest.h>
#include <sys/resource.h>

#include <array>
#include <fstream>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

#include "paperloom/platform/ImageDecoder.h"

namespace paperloom::test {
namespace {

// The size of all pictures in the files.
constexpr int width = 24;
constexpr int height = 16;

std::string picture(const std::string& name) {
  std::ifstream in(PAPERLOOM_PICTURES + name, std::ios::binary);
  EXPECT_TRUE(in) << name;
  return {std::istreambuf_iterator<char>(in), {}};
}

// Of one colour each.
const std::pair<const char*, std::array<int, 4>> samples[] = {
    {"rgb.jpg", {200, 100, 50, 255}},    {"progressive.jpg", {200, 100, 50, 255}},
    {"grey.jpg", {90, 90, 90, 255}},     {"cmyk.jpg", {200, 100, 50, 255}},
    {"rgba.png", {1, 2, 3, 77}},         {"grey.png", {90, 90, 90, 255}},
    {"palette.png", {10, 200, 30, 255}}, {"deep.png", {255, 0, 255, 255}},
    {"lossy.webp", {200, 100, 50, 255}}, {"lossless.webp", {1, 2, 3, 77}},
    {"palette.gif", {10, 200, 30, 255}}, {"animation.gif", {90, 90, 90, 255}},
};

TEST(ImageTest, everyFormatAndColourModelBecomesRedGreenBlueAlpha) {
  for (const auto& [name, colour] : samples) {
    SCOPED_TRACE(name);
    const auto image = ImageDecoder::current()->decode(picture(name));
    ASSERT_TRUE(image);
    EXPECT_EQ(image->width(), width);
    EXPECT_EQ(image->height(), height);
    for (std::size_t i = 0; i < image->pixels().size(); ++i) {
      ASSERT_NEAR(image->pixels()[i], colour[i % 4], 4) << "byte " << i;
    }
  }
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

TEST(ImageTest, aPictureIsTurnedUprightAndFitsWhatWasAskedFor) {
  constexpr int a = 20, b = 90, c = 160, d = 230;
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
    for (const char* format : {".jpg", ".png", ".webp"}) {
      const std::string file = picture("turned-" + std::to_string(orientation) + format);
      const StandardImageDecoder decoder;
      const auto whole = decoder.decode(file);
      ASSERT_TRUE(whole) << orientation;
      for (const Row& row : rows) {
        SCOPED_TRACE("orientation " + std::to_string(orientation) + " in " + format + " within " +
                     std::to_string(row.maximum.width) + "x" + std::to_string(row.maximum.height));
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

// A JPEG whose Exif block, 12 bytes into the file, is `block`.
std::string withBlock(std::string file, const std::string& block) {
  file.replace(12, static_cast<std::size_t>(file[5]) - 8, block);
  file[5] = static_cast<char>(block.size() + 8);
  return file;
}

TEST(ImageTest, aDamagedOrientationTagIsIgnored) {
  const std::string turned = picture("turned-6.jpg");
  const std::string good = turned.substr(12, 26);
  ASSERT_NE(StandardImageDecoder().decode(withBlock(turned, good))->width(), width);
  std::vector<std::string> blocks;
  for (std::size_t length = 0; length < 20; ++length) blocks.push_back(good.substr(0, length));
  const std::pair<std::size_t, char> damages[] = {{0, 'M'},     {2, 'x'},     {4, '\xff'},
                                                  {7, '\xff'},  {12, '\x04'}, {18, '\0'},
                                                  {18, '\x09'}, {19, '\x01'}};
  for (const auto& [at, value] : damages) {
    blocks.push_back(good);
    blocks.back()[at] = value;
  }
  for (const std::string& block : blocks) {
    const auto image = StandardImageDecoder().decode(withBlock(turned, block));
    ASSERT_TRUE(image);
    EXPECT_EQ(image->width(), width) << ::testing::PrintToString(block);
  }
}

TEST(ImageTest, scalingMixesColoursByTheirOpacity) {
  struct OnlyWhole final : ImageDecoder {
    std::shared_ptr<const Image> decode(std::string_view bytes) const override {
      return StandardImageDecoder().decode(bytes);
    }
  };
  for (const char* name : {"half-clear.png", "half-clear.webp", "half-clear.gif"}) {
    const std::string file = picture(name);
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

TEST(ImageTest, aFrameThatReachesBeyondTheCanvasIsShownAsFarAsItLiesThere) {
  const auto image = StandardImageDecoder().decode(picture("beyond.gif"));  // from (2, 1) on
  ASSERT_TRUE(image);
  ASSERT_EQ(image->width() * image->height(), 16);
  for (std::size_t i = 0; i < 16; ++i) {
    const bool isShown = i / 4 >= 1 && i % 4 >= 2;
    EXPECT_EQ(image->pixels()[i * 4 + 3], isShown ? 255 : 0) << i;
    EXPECT_EQ(image->pixels()[i * 4], isShown ? 10 * (i / 4 - 1) : 0) << i;  // a red for each row
  }
}

TEST(ImageTest, anImageCutAnywhereIsNone) {
  for (const auto& [name, colour] : samples) {
    const std::string file = picture(name);
    for (std::size_t length = 0; length < file.size(); ++length) {
      EXPECT_FALSE(ImageDecoder::current()->decode(std::string_view(file).substr(0, length)))
          << name << " cut at " << length;
    }
  }
}

TEST(ImageTest, aHeaderThatClaimsTooManyPixelsIsRefusedBeforeMemoryIsTaken) {
  rusage before{};
  getrusage(RUSAGE_SELF, &before);
  std::string file = picture("rgb.jpg");
  // Height and width stand, two bytes each, 5 bytes into the frame header.
  const auto frame = file.find("\xff\xc0");
  ASSERT_NE(frame, std::string::npos);
  file.replace(frame + 5, 4, std::string("\xea\x60\xea\x60"));
  EXPECT_FALSE(ImageDecoder::current()->decode(file));
  rusage after{};
  getrusage(RUSAGE_SELF, &after);
  EXPECT_LT(after.ru_maxrss - before.ru_maxrss, 64 * 1024);

  for (const auto& [name, colour] : samples) {
    EXPECT_TRUE(StandardImageDecoder(width * height).decode(picture(name))) << name;
    EXPECT_FALSE(StandardImageDecoder(width * height - 1).decode(picture(name))) << name;
  }
}

TEST(ImageTest, aPictureOfThousandsOfPassesIsGivenUp) {
  std::string file = picture("progressive.jpg");
  const auto lastScan = file.rfind("\xff\xda");
  const std::string scan = file.substr(lastScan, file.size() - 2 - lastScan);
  for (int i = 0; i < 200; ++i) file.insert(file.size() - 2, scan);
  EXPECT_FALSE(ImageDecoder::current()->decode(file));
}

}  // namespace
}  // namespace paperloom::test
