#include "paperloom/model/ParseFindings.h"

#include <gtest/gtest.h>

#include <fstream>
#include <functional>
#include <set>
#include <sstream>

#include "paperloom/model/ArticleParser.h"
#include "paperloom/model/DocumentParsers.h"
#include "tests/model/Documents.h"

namespace paperloom::test {
namespace {

using Pointer = json::json_pointer;
using Severity = ParseFinding::Severity;

std::vector<ParseFinding> findingsOf(bool isStream, const std::string& text) {
  ParseFindings findings;
  const Data data(text);
  const bool parsed = isStream ? StreamParser().parse(data, &findings).has_value()
                               : ArticleParser().parse(data, &findings).has_value();
  const bool parsesAlone =
      isStream ? StreamParser().parse(data).has_value() : ArticleParser().parse(data).has_value();
  EXPECT_EQ(parsed, parsesAlone);
  return findings.list();
}

std::string described(const std::vector<ParseFinding>& findings) {
  std::ostringstream text;
  for (const ParseFinding& each : findings) {
    text << "\n"
         << caseName(each.severity) << " " << each.rule << " " << each.place.path << " "
         << each.message;
  }
  return text.str();
}

// Whether the place is where the text has what the path ends in.
bool isWhereItSays(const ParsePlace& place, const std::string& text) {
  std::istringstream lines(text);
  std::string line;
  for (std::size_t i = 0; i < place.line; ++i) std::getline(lines, line);
  const std::string name = place.path.substr(place.path.rfind('/') + 1);
  const bool isElement = name.empty() || std::isdigit(static_cast<unsigned char>(name[0])) != 0;
  return isElement || line.substr(place.column - 1).starts_with('"' + name + '"');
}

struct Golden {
  bool isStream;
  json document;
};

json file(const std::string& name) {
  return json::parse(std::ifstream(PAPERLOOM_RECORDS "/" + name + ".document.json"));
}

// The documents of the golden records, without the faults that these are also about.
std::vector<Golden> cleanDocuments() {
  json stream = file("stream");
  stream["/sections/0/previews/0/cardAsset/renditions/1/height"_json_pointer] = 24;
  json article = file("article");
  article["authors"].erase(0);
  article["body"].erase(8);
  article["/body/2/renditions"_json_pointer].erase(1);
  return {{true, stream}, {false, article}};
}

const json& cleanDocument(bool isStream) {
  static const auto documents = cleanDocuments();
  return documents[isStream ? 0 : 1].document;
}

void visit(const json& value, const Pointer& at, const std::function<void(const Pointer&)>& with) {
  if (!at.empty()) with(at);
  if (value.is_object()) {
    for (const auto& [key, below] : value.items()) visit(below, at / key, with);
  } else if (value.is_array()) {
    for (std::size_t i = 0; i < value.size(); ++i) visit(value[i], at / i, with);
  }
}

// Keys that may be left out wherever they are, and those that may in some objects.
bool isOptional(const Pointer& at) {
  static const std::set<std::string> always = {"pageId",
                                               "cardType",
                                               "videoDuration",
                                               "premium",
                                               "sponsored",
                                               "authors",
                                               "jobTitle",
                                               "cardAsset",
                                               "caption",
                                               "copyright",
                                               "altText",
                                               "displayAsCarousel",
                                               "fallbackCards",
                                               "premiumFallbackCards",
                                               "fallbackCardsOverride",
                                               "premiumFallbackCardsOverride",
                                               "datePublished",
                                               "starRating",
                                               "websiteUrl",
                                               "callToAction",
                                               "adZone",
                                               "businessSegment",
                                               "leadAsset",
                                               "body",
                                               "registerWall",
                                               "byline"};
  static const std::set<std::string> here = {"/type",
                                             "/sponsor/name",
                                             "/sponsor/url",
                                             "/leadAsset/videoEmbedId",
                                             "/body/6/text",
                                             "/sections/0/previews/0/type",
                                             "/sponsoredContent/0/type"};
  return always.contains(at.back()) || here.contains(at.to_string());
}

TEST(ParseFindingsTest, everyFaultOfAKeyOrAnElementIsNamedWhereItIs) {
  int mutants = 0;
  for (const Golden& golden : cleanDocuments()) {
    const auto expect = [&](const json& document, const std::string& path, const char* rule,
                            std::set<Severity> severities) {
      const std::string text = document.dump(2);
      const auto findings = findingsOf(golden.isStream, text);
      const bool isNamed =
          std::any_of(findings.begin(), findings.end(), [&](const ParseFinding& each) {
            return each.place.path == path && each.rule == rule &&
                   severities.contains(each.severity);
          });
      EXPECT_TRUE(isNamed || severities.empty()) << path << " " << rule << described(findings);
      for (const ParseFinding& each : findings) {
        EXPECT_TRUE(isWhereItSays(each.place, text)) << described({each});
        EXPECT_TRUE(!severities.empty() || each.severity == Severity::note) << described(findings);
      }
      ++mutants;
    };
    const std::string clean = golden.document.dump(2);
    EXPECT_EQ(described(findingsOf(golden.isStream, clean)), "");

    visit(golden.document, Pointer(), [&](const Pointer& at) {
      json changed = golden.document;
      changed[at] = changed[at].is_number() ? json("text") : json(1.5);
      const bool isElement = golden.document[at.parent_pointer()].is_array();
      const bool isDefaulted = isElement || isOptional(at);
      expect(
          changed, at.to_string(), "wrong-type",
          isDefaulted ? std::set{Severity::warning, Severity::error} : std::set{Severity::error});
      if (isElement) return;

      changed = golden.document;
      changed[at.parent_pointer()].erase(at.back());
      expect(changed, at.parent_pointer().to_string(), "missing-key",
             isOptional(at) ? std::set<Severity>{} : std::set{Severity::error});

      changed[at.parent_pointer() / (at.back() + "x")] = golden.document[at];
      expect(changed, at.to_string() + "x", "unread-key", {Severity::note});
    });
  }
  EXPECT_GT(mutants, 300);
}

TEST(ParseFindingsTest, rulesAreToldWithWhatAReaderSees) {
  struct Case {
    bool isStream;
    const char* at;
    json value;
    const char* rule;
    Severity severity;
    const char* words;
    const char* path = nullptr;  // where that is another one
  };
  const auto [error, warning, note] =
      std::tuple(Severity::error, Severity::warning, Severity::note);
  const std::string card = "/sections/0/previews/0";
  const Case cases[] = {
      {true, "/sections/0/previews/0/url", "http://[", "invalid-url", error,
       "the card is left out"},
      {true, "/sections/0/previews/0/cardType", "huge", "unknown-value", warning,
       "drawn as a small"},
      {true, "/sections/0/previews/0/type", "essay", "unknown-value", warning, "kind is unknown"},
      {true, "/sections/0/previews/0/type", nullptr, "wrong-type", warning, "null"},
      {true, "/sections/0/previews/0/cardAsset/type", "film", "unknown-value", error, "no picture"},
      {true, "/sections/0/previews/0/cardAsset/renditions", json::array(), "no-renditions", error,
       "the card has no picture"},
      {true, "/sections/0/previews/0/cardAsset/renditions/0/url", "", "invalid-url", error, "size"},
      {true, "/sections/0/previews/0/cardAsset/renditions/0/height", 300, "out-of-proportion", note,
       "50 x 300", "/sections/0/previews/0/cardAsset/renditions/1"},
      {true, "/sections/0/uid", "other", "no-metadata", error, "whole document"},
      {true, "/sections/1/uid", "uid", "duplicate-identifier", note, "in the same list"},
      {true, "/sections/0/previews/1/qrvId", "qrvId", "duplicate-identifier", note, "before"},
      {true, "/sponsoredContent/0/qrvId", "qrvId", "duplicate-identifier", note, "another address"},
      {true, "/sponsoredContent/0/url", "http://[", "invalid-url", error, "whole document"},
      {true, "/sections/0/previews/0/url", "http://a.example", "insecure-link", note, "https"},
      {true, "/sections/0/previews/0/headline", " ", "empty-text", note, "empty"},
      {true, "/sectionMetaData/0/customization", "never", "unknown-value", warning,
       "switches it on"},
      {true, "/sectionMetaData/0/displayAsCarousel", false, "unread-key", note, "never read",
       "/sectionMetaData/0/fallbackCardsOverride"},
      {false, "/datePublished", "1 March", "invalid-date", warning, "no date"},
      {false, "/datePublished", "2999-01-01T00:00:00Z", "future-date", note, "future"},
      {false, "/websiteUrl", "", "invalid-url", warning, "no link to the website"},
      {false, "/callToAction", "beg", "unknown-value", warning, "loginOrPurchase"},
      {false, "/sponsor/image", "", "invalid-url", error, "whole document"},
      {false, "/sponsor/url", "http://[", "invalid-url", warning, "no link"},
      {false, "/registerWall/dismissType", "Soft", "unknown-value", error, "hard, soft"},
      {false, "/leadAsset/type", "Image", "unknown-value", error, "no lead picture"},
      {false, "/starRating", 4.5, "wrong-type", warning, "no whole number"},
      {false, "/body/0/level", 7, "unknown-value", error, "1, 2, 3"},
      {false, "/body/1/type", "quiz", "unknown-value", warning, "the block is not shown"},
      {false, "/body/7/time", "noon", "invalid-date", error, "the block is not shown"},
  };
  for (const Case& each : cases) {
    json document = cleanDocument(each.isStream);
    document[Pointer(each.at)] = each.value;
    const auto findings = findingsOf(each.isStream, document.dump());
    const bool isNamed = std::any_of(findings.begin(), findings.end(), [&](const auto& finding) {
      return finding.place.path == (each.path != nullptr ? each.path : each.at) &&
             finding.rule == each.rule && finding.severity == each.severity &&
             finding.message.find(each.words) != std::string::npos;
    });
    EXPECT_TRUE(isNamed) << each.at << " " << each.value << described(findings);
  }
}

TEST(ParseFindingsTest, aTextThatIsNoJSONSaysWhereItEndsToBeSo) {
  struct Case {
    std::string text;
    std::size_t line;
    std::size_t column;
  };
  const std::string deep(2000, '[');
  const Case cases[] = {
      {"", 1, 1},
      {"{\n  \"a\": 1,\n}", 3, 1},
      {"{\"\u00e9\": 01}", 1, 8},
      {"\xEF\xBB\xBF{]", 1, 2},
      {"{\"a\": \"\xff\"}", 1, 8},
      {"{\"a\": \"\xed\xa0\x80\"}", 1, 8},
      {R"({"a": "\ud800"})", 1, 9},
      {R"({"a": "b)", 1, 9},
      {"{\"a\": tru}", 1, 10},
      {"{} {}", 1, 4},
      {deep, 1, 1025},
  };
  for (const Case& each : cases) {
    const auto findings = findingsOf(true, each.text);
    ASSERT_EQ(findings.size(), 1U) << each.text << described(findings);
    EXPECT_EQ(findings[0].rule, "invalid-json");
    EXPECT_EQ(findings[0].place.line, each.line) << each.text;
    EXPECT_EQ(findings[0].place.column, each.column) << each.text;
  }
}

TEST(ParseFindingsTest, strangeDocumentsAreToldOfAndEnd) {
  const auto only = [](const std::string& text) {
    const auto findings = findingsOf(false, text);
    return findings.size() == 1 ? findings[0] : ParseFinding{};
  };
  EXPECT_EQ(only("[]").rule, "wrong-type");
  EXPECT_EQ(only(R"({"headline": "a", "headline": "b"})").rule, "duplicate-key");
  EXPECT_EQ(only(R"({"headline": "a", "a/b~\u0041": 1})").place.path, "/a~1b~0A");
  EXPECT_EQ(only(R"({"headline": "a", "starRating": 1e400})").rule, "wrong-type");

  std::string blocks;
  for (int i = 0; i < 5000; ++i) blocks += R"({"type":1},)";
  const auto many = findingsOf(false, R"({"headline":"h","body":[)" + blocks + "{}]}");
  ASSERT_EQ(many.size(), 1001U);
  EXPECT_EQ(many.back().rule, "more-findings");
}

}  // namespace
}  // namespace paperloom::test
