#include "paperloom/platform/JSON.h"

#include <gtest/gtest.h>

#include <future>

#include "tests/support/Split.h"

namespace paperloom::test {
namespace {

const char* const values = R"({
  "text": "\u00e9", "empty": "", "yes": true, "no": false, "null": null, "one": 1, "zero": -0.0,
  "least": -9223372036854775808, "most": 9223372036854775807, "beyond": 9223372036854775808,
  "whole": 640.0, "exponent": 64e1, "half": 0.5, "huge": 1e30, "2^63": 9223372036854775808.0,
  "object": {"a": {"b": "c"}}, "objects": [{"n": 1}, {}, {"n": 3}], "mixed": [{}, []],
  "strings": ["a", "b"], "numbers": [1], "none": [], "twice": "first", "twice": "second",
  "shadowed": null, "shadowed": "text"
})";

TEST(JSONTest, aValueCountsOnlyWithExactlyTheAskedType) {
  const JSONDocument document = JSONDocument::parse(values).value();
  const JSONObject json = document.object().value();
  for (const char* key : {"text", "empty", "yes", "no", "null", "one", "half", "object", "objects",
                          "mixed", "strings", "numbers", "none", "missing", ""}) {
    SCOPED_TRACE(key);
    const std::string name = key;
    EXPECT_EQ(json.string(key).has_value(), name == "text" || name == "empty");
    EXPECT_EQ(json.boolean(key).has_value(), name == "yes" || name == "no");
    EXPECT_EQ(json.integer(key).has_value(), name == "one");
    EXPECT_EQ(json.object(key).has_value(), name == "object");
    EXPECT_EQ(json.objects(key).has_value(), name == "objects" || name == "none");
    EXPECT_EQ(json.strings(key).has_value(), name == "strings" || name == "none");
  }
  EXPECT_EQ(json.string("text"), "\u00e9");
  EXPECT_EQ(json.object("object").value().object("a").value().string("b"), "c");
  EXPECT_EQ(json.string("twice"), "first");
  EXPECT_EQ(json.string("shadowed"), std::nullopt);
}

TEST(JSONTest, integersAreNumbersOfIntegralValueWithinTheirRange) {
  const JSONDocument document = JSONDocument::parse(values).value();
  const std::pair<const char*, std::optional<std::int64_t>> table[] = {
      {"one", 1},
      {"zero", 0},
      {"least", std::numeric_limits<std::int64_t>::min()},
      {"most", std::numeric_limits<std::int64_t>::max()},
      {"beyond", std::nullopt},
      {"2^63", std::nullopt},
      {"whole", 640},
      {"exponent", 640},
      {"half", std::nullopt},
      {"huge", std::nullopt},
  };
  for (const auto& [key, expected] : table) {
    EXPECT_EQ(document.object().value().integer(key), expected) << key;
  }
}

TEST(JSONTest, listsOfObjectsAreWalkedInOrder) {
  const JSONDocument document = JSONDocument::parse(values).value();
  const auto list = document.object().value().objects("objects");
  ASSERT_TRUE(list);
  std::string all;
  for (const JSONObject& object : *list) all += std::to_string(object.integer("n").value_or(0));
  EXPECT_EQ(all, "103");
  EXPECT_EQ(list->size(), 3U);
  EXPECT_EQ(JSONObjectList().begin(), JSONObjectList().end());
}

TEST(JSONTest, descriptionsAreCompactTextAndNilForAnAbsentKey) {
  const JSONDocument document = JSONDocument::parse(values).value();
  const JSONObject json = document.object().value();
  EXPECT_EQ(json.debugDescription("objects"), R"([{"n":1},{},{"n":3}])");
  EXPECT_EQ(json.debugDescription("text"), "\"\u00e9\"");
  EXPECT_EQ(json.debugDescription("null"), "null");
  EXPECT_EQ(json.debugDescription("missing"), "nil");
}

TEST(JSONTest, aNumberOutOfRangeCountsAsNullAndDecidesOverNothingElse) {
  auto numbers = test::split(
      "18446744073709551616|-9223372036854775809|123456789012345678901|1e400|-1E+400|1.5e309|"
      "0.9e99999999999999999999");
  for (const char* end : {"", ".5", "e-9"}) numbers.push_back("-" + std::string(400, '9') + end);
  for (const std::string& number : numbers) {
    const std::string bytes = R"({"1e400\\": "\"1e400", "n":)" + number + R"(,"list":["a",)" +
                              number + R"(],"in":{"n":)" + number + "\t,\"whole\":7}}";
    const auto document = JSONDocument::parse(bytes);
    ASSERT_TRUE(document) << number;
    const JSONObject json = document->object().value();
    EXPECT_EQ(json.string("1e400\\"), "\"1e400");
    EXPECT_EQ(json.debugDescription("n"), "null");
    EXPECT_EQ(json.integer("n"), std::nullopt);
    EXPECT_EQ(json.strings("list"), std::nullopt);
    EXPECT_EQ(json.object("in").value().integer("whole"), 7);
    EXPECT_FALSE(JSONDocument::parse(number)->object());
    for (std::string invalid :
         test::split("%,|[%|[0%]|[-0%]|[%.]|[%.1.1]|[%e]|[nul%]|[%null]|[+%]|[--%]|"
                     "[%,01]|{%:1}|[1\"%]|[\"\\%]|[%,\"\xff\"]|[%]]|['%']")) {
      invalid.replace(invalid.find('%'), 1, number);
      EXPECT_FALSE(JSONDocument::parse(invalid)) << invalid;
    }
  }
}

std::string nested(std::size_t levels) {
  return std::string(levels, '[') + std::string(levels, ']');
}

TEST(JSONTest, whatIsNoJSONTextIsAnErrorWithTheDecodersWords) {
  auto invalid = test::split(
      "|\xEF\xBB\xBF|\xEF\xBB\xBF\xEF\xBB\xBF{}| \n|{|{\"a\":1,}|{} {}|nul|'a'|{\"a\":\"\xff\"}|"
      "\"\xED\xA0\x80\"|\"\\ud800\"|\"\\x\"|\"a\nb\"|01|1.|NaN");
  for (const char byte : {'[', '{'}) invalid.emplace_back(100'000, byte);
  invalid.insert(invalid.end(), {std::string("\"a\0b\"", 5), nested(1025), nested(100'000)});
  for (const std::string& text : invalid) {
    const auto document = JSONDocument::parse(text);
    ASSERT_FALSE(document) << text.substr(0, 40);
    EXPECT_FALSE(document.error().localizedDescription.empty());
  }
  for (const std::string& text : {nested(1000), std::string("3"), std::string("\xEF\xBB\xBFnull"),
                                  std::string("18446744073709551615"), std::string("1e-999")}) {
    const auto document = JSONDocument::parse(text);
    ASSERT_TRUE(document) << text.substr(0, 40);
    EXPECT_FALSE(document->object());
  }
}

// Documents share their thread's working memory in turn; those alive at once must not.
TEST(JSONTest, documentsLiveOnBesideLaterOnesOfAnySizeAndOnOtherThreads) {
  const auto text = [](int number, std::size_t size) {
    return "{\"n\":" + std::to_string(number) + ",\"pad\":\"" + std::string(size, 'x') + "\"" +
           (number % 3 == 0 ? ",\"big\":1e400}" : "}");
  };
  std::vector<JSONDocument> documents;
  const std::size_t sizes[] = {0, 100, 5'000'000, 10, 3'000'000, 200'000, 1};
  for (int round = 0; round < 2; ++round) {
    documents.clear();
    for (int i = 0; i < 7; ++i) {
      std::string bytes = text(i, sizes[i]);
      if (i % 2 == 1) bytes.reserve(bytes.size() + 64);
      documents.push_back(JSONDocument::parse(Data(std::move(bytes))).value());
      EXPECT_FALSE(JSONDocument::parse("{\"n\":"));
    }
    for (int i = 0; i < 7; ++i) {
      const JSONObject json = documents[static_cast<std::size_t>(i)].object().value();
      EXPECT_EQ(json.integer("n"), i);
      EXPECT_EQ(json.stringView("pad").value().size(), sizes[i]);
    }
  }
  std::async(std::launch::async, [&] { documents.clear(); }).get();
  auto elsewhere = std::async(std::launch::async, [&] { return JSONDocument::parse(text(9, 5)); });
  EXPECT_EQ(elsewhere.get().value().object().value().integer("n"), 9);
}

}  // namespace
}  // namespace paperloom::test
