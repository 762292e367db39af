#include <gtest/gtest.h>

#include <fstream>
#include <iterator>

#include "apps/reader/RecordJSON.h"
#include "paperloom/model/ArticleParser.h"
#include "paperloom/model/DocumentParsers.h"
#include "tests/support/UnreadKey.h"

namespace paperloom::test {
namespace {

using JSON = reader::JSON;

// Documents in which every value names its own key, and the records that they must become.
std::string file(const std::string& name) {
  std::ifstream stream(PAPERLOOM_RECORDS "/" + name + ".json");
  return {std::istreambuf_iterator<char>(stream), {}};
}

template <class Parser>
JSON record(const Parser& parser, std::string document) {
  const auto result = parser.parse(Data(std::move(document)));
  if (result) return reader::toJSON(**result);
  return asPaperloomError(result.error()).details();
}

void expectSame(const JSON& record, const JSON& expected) {
  EXPECT_EQ(record.dump(), expected.dump()) << JSON::diff(expected, record).dump(1);
}

TEST(GoldenRecordTest, everyValueLandsInTheFieldOfItsKey) {
  const JSON stream = JSON::parse(file("stream.record"));
  expectSame(record(StreamParser(), file("stream.document")), stream);
  expectSame(record(ConfigParser(), file("stream.document")), stream["appMetadata"]);
  expectSame(record(ArticleParser(), file("article.document")),
             JSON::parse(file("article.record")));
}

TEST(GoldenRecordTest, aKeyThatNobodyReadsChangesNoRecordWhateverItsValue) {
  const auto expectUnchanged = [](const auto& parser, const std::string& document) {
    const JSON expected = record(parser, document);
    ASSERT_TRUE(expected.is_object()) << expected;
    for (const std::string_view value : test::anyValues) {
      for (std::string& text : test::withMember(document, "\"~\":" + std::string(value))) {
        const JSON changed = record(parser, text);
        ASSERT_EQ(changed, expected) << value << JSON::diff(expected, changed) << text;
      }
    }
  };
  expectUnchanged(StreamParser(), file("stream.document"));
  expectUnchanged(ConfigParser(), file("stream.document"));
  expectUnchanged(ArticleParser(), file("article.document"));
}

}  // namespace
}  // namespace paperloom::test
