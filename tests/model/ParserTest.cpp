#include <gtest/gtest.h>

#include "paperloom/model/ArticleParser.h"
#include "paperloom/model/DocumentParsers.h"
#include "paperloom/platform/ImageDecoder.h"
#include "tests/model/Documents.h"

namespace paperloom::test {
namespace {

// "parsed", the library's failure, or the decoder's.
template <class Parser>
std::string outcome(const Parser& parser, std::string bytes) {
  const auto result = parser.parse(Data(std::move(bytes)));
  if (result) return "parsed";
  if (const auto* error = std::get_if<JSONError>(&result.error())) {
    return "decoder: " + error->localizedDescription;
  }
  const auto& error = std::get<PaperloomError>(result.error());
  return std::string(caseName(error.which())) + ": " + error.details();
}

template <class Parser>
void expectFrame(const Parser& parser, const json& good, const std::string& topLevel,
                 const std::string& ofAnEmptyObject) {
  EXPECT_EQ(outcome(parser, good.dump()), "parsed");
  EXPECT_EQ(outcome(parser, "\xEF\xBB\xBF" + good.dump()), "parsed");
  for (const char* other : {"[]", "3", "\"text\"", "null", "true", " [{}] "}) {
    EXPECT_EQ(outcome(parser, other), "parsingFailed: " + topLevel) << other;
  }
  EXPECT_EQ(outcome(parser, "{}"), "parsingFailed: " + ofAnEmptyObject);

  const std::string whole = good.dump();
  for (std::size_t length = 0; length < whole.size(); ++length) {
    const std::string result = outcome(parser, whole.substr(0, length));
    ASSERT_TRUE(result.starts_with("decoder: ")) << length << ": " << result;
    ASSERT_GT(result.size(), 15U);
  }
}

TEST(ParserTest, everyDocumentParserDecodesDemandsAnObjectAndPassesFailuresThrough) {
  json stream = config({"a"});
  stream["sections"] = json::array({section("a", {with(card, {{"cardAsset", image}})})});
  stream["sponsoredContent"] = json::array();
  expectFrame(*makeConfigParser(), config({"a", "b"}),
              "failed to parse top level object in JSON config",
              "failed to parse JSON into app meta data");
  expectFrame(*makeStreamParser(), stream, "failed to parse top level object in JSON Stream",
              "failed to parse JSON into Stream");
  expectFrame(ArticleParser(), {{"headline", "h"}, {"leadAsset", image}, {"registerWall", wall}},
              "failed to parse top level object in JSON Article",
              "failed to parse JSON into article");
}

TEST(ParserTest, undecodableImageBytesAreAParsingFailure) {
  const std::string text = "parsingFailed: could not parse data into image";
  EXPECT_EQ(outcome(*makeImageParser(), ""), text);
  EXPECT_EQ(outcome(*makeImageParser(), "{}"), text);
}

TEST(ParserTest, theImageComesFromTheDecoderInPlace) {
  struct OnePixel final : ImageDecoder {
    std::shared_ptr<const Image> decode(std::string_view bytes) const override {
      return std::make_shared<const Image>(
          1, 1, std::make_unique<std::uint8_t[]>(bytes.size() < 4 ? 4 : bytes.size()));
    }
  };
  ImageDecoder::setCurrent(std::make_shared<OnePixel>());
  const auto image = makeImageParser()->parse(Data("x"));
  ImageDecoder::setCurrent(nullptr);
  ASSERT_TRUE(image);
  EXPECT_EQ((*image)->width(), 1);
}

}  // namespace
}  // namespace paperloom::test
