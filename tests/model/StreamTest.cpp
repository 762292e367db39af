#include "paperloom/model/Stream.h"

#include <gtest/gtest.h>

#include "paperloom/model/CurrentAppMetadata.h"
#include "tests/model/Documents.h"

namespace paperloom::test {
namespace {

const std::string cardFailure = "parsingFailed: failed to parse JSON into ArticleHeader";

json stream(std::initializer_list<const char*> sections,
            std::initializer_list<const char*> metadata) {
  json document = config(metadata);
  document["sections"] = json::array();
  for (const char* uid : sections) document["sections"].push_back(section(uid));
  document["sponsoredContent"] = json::array();
  return document;
}

std::string uids(const std::shared_ptr<const AppMetadataProtocol>& metadata) {
  std::string text;
  if (!metadata) return "none";
  for (const auto& entry : metadata->sectionMetadata()) text += entry->uid();
  return text;
}

std::string uids(const StreamProtocol& stream) {
  std::string text;
  for (const auto& entry : stream.sections()) {
    text += entry->uid() + std::to_string(entry->articleHeaders().size());
  }
  return text;
}

TEST(ArticleHeaderTest, requiredTextsComeBeforeTheURLCheck) {
  expectRequired<ArticleHeader>(card, cardFailure);
  EXPECT_EQ(failure<ArticleHeader>(with(card, {{"url", "a b"}})),
            "parsingFailed: invalid url [ a b ] for article with identifier one");
  EXPECT_EQ(failure<ArticleHeader>(with(card, {{"url", ""}, {"qrvId", 1}})), cardFailure);
}

TEST(ArticleHeaderTest, optionalValuesCountOnlyWithTheirType) {
  const json bad = with(card, {{"cardAsset", {{"type", "image"}}},
                               {"cardType", "Bespoke"},
                               {"type", "live"},
                               {"videoDuration", 120},
                               {"authors", {{{"name", "A"}}, "B"}},
                               {"premium", 1},
                               {"sponsored", "true"}});
  for (const json& document : {card, bad}) {
    const auto header = *parse<ArticleHeader>(document);
    EXPECT_EQ(header->URL().absoluteString(), "https://n.example/1.json");
    EXPECT_FALSE(header->cardAsset() || header->isPremium() || header->sponsored() ||
                 header->videoDuration());
    EXPECT_EQ(header->cardType(), CardType::small);
    EXPECT_EQ(header->articleType(), ArticleType::unknown);
    EXPECT_TRUE(header->authors().empty());
  }
}

TEST(SectionTest, badCardsAreDroppedAndTheRestKeepTheirOrder) {
  expectRequired<Section>(with(section("a"), {{"pageId", absent}}),
                          "parsingFailed: failed to parse JSON into section");
  EXPECT_NE(failure<Section>(section("a", {card, 1})), "parsed");
  const auto parsed =
      *parse<Section>(section("a", {with(card, {{"qrvId", "1"}}), with(card, {{"url", "a b"}}),
                                    json::object(), with(card, {{"qrvId", "2"}})}));
  ASSERT_EQ(parsed->articleHeaders().size(), 2U);
  EXPECT_EQ(parsed->articleHeaders()[0]->identifier(), "1");
  EXPECT_EQ(parsed->articleHeaders()[1]->identifier(), "2");
  EXPECT_EQ(parsed->pageID(), "page");
  EXPECT_EQ((*parse<Section>(with(section("a"), {{"pageId", 3}})))->pageID(), std::nullopt);
}

TEST(StreamTest, failuresComeInTheOrderOfTheSteps) {
  const std::string shape = "parsingFailed: failed to parse JSON into Stream";
  const std::string metadata =
      "parsingFailed: could not get section metadata while preparing stream";
  const std::string join = "parsingFailed: section uids did not match section metadata uids";
  const json good = stream({"a"}, {"a"});
  const json badCards = json::array({card, with(card, {{"url", "%"}}), json::object()});
  const std::pair<json, std::string> table[] = {
      {good, "parsed"},
      {stream({}, {}), "parsed"},
      {with(good, {{"sections", absent}, {"sectionMetaData", absent}}), shape},
      {with(good, {{"sections", {section("a"), 1}}}), shape},
      {with(good, {{"sponsoredContent", absent}}), shape},
      {with(good, {{"sponsoredContent", {card, "card"}}}), shape},
      {with(good, {{"sectionMetaData", absent}}), metadata},
      {with(good, {{"globalMetaData", json::object()}}), metadata},
      {with(stream({"x"}, {"a"}), {{"sponsoredContent", badCards}}), join},
      {stream({"a", "x"}, {"a"}), join},
      {with(good, {{"sponsoredContent", badCards}}),
       "parsingFailed: invalid url [ % ] for article with identifier one"},
      {with(good, {{"sponsoredContent", json::array({json::object()})}}), cardFailure},
  };
  for (const auto& [document, expected] : table) {
    EXPECT_EQ(failure<Stream>(document), expected) << document;
  }
}

TEST(StreamTest, metadataFollowsTheSectionsOneEntryEach) {
  struct Row {
    json document;
    const char* sections;
    const char* metadata;
  };
  const json bad =
      with(stream({"a", "b"}, {"a", "b"}), {{"sections", {json::object(), section("b")}}});
  const Row table[] = {
      {stream({"a", "b"}, {"b", "c", "a"}), "a1b1", "ab"},
      {stream({"b", "a", "b"}, {"a", "b", "b"}), "b1a1b1", "bab"},
      {bad, "b1", "b"},
  };
  for (const Row& row : table) {
    const auto parsed = *parse<Stream>(row.document);
    EXPECT_EQ(uids(*parsed), row.sections);
    EXPECT_EQ(uids(parsed->appMetadata()), row.metadata);
    EXPECT_EQ(parsed->appMetadata()->globalMetadata()->premiumPrimaryColour(), "#1");
  }
  json twice = stream({"a"}, {"a", "a"});
  twice["sectionMetaData"][0]["displayName"] = "First";
  EXPECT_EQ((*parse<Stream>(twice))->appMetadata()->sectionMetadata()[0]->displayName(), "First");
}

TEST(StreamTest, allMetadataBecomesCurrentEvenWhenTheStreamThenFails) {
  auto& current = CurrentAppMetadata::shared();
  ASSERT_TRUE(parse<Stream>(stream({"a"}, {"b", "a"})));
  EXPECT_EQ(uids(current.get()), "ba");
  ASSERT_FALSE(parse<Stream>(stream({"x"}, {"c", "d"})));
  EXPECT_EQ(uids(current.get()), "cd");
  ASSERT_FALSE(parse<Stream>(
      with(stream({"e"}, {"e"}), {{"sponsoredContent", json::array({json::object()})}})));
  EXPECT_EQ(uids(current.get()), "e");
  ASSERT_FALSE(parse<Stream>(with(stream({"f"}, {"f"}), {{"globalMetaData", absent}})));
  EXPECT_EQ(uids(current.get()), "e");
}

TEST(StreamTest, theFilterTakesCardsButNeitherSectionsNorSponsoredCards) {
  const json cards = {with(card, {{"qrvId", "1"}}), with(card, {{"qrvId", "2"}}),
                      with(card, {{"qrvId", "3"}})};
  json document = stream({"a", "b"}, {"a", "b"});
  document["sections"][0]["previews"] = cards;
  document["sponsoredContent"] = cards;
  const auto parsed = std::dynamic_pointer_cast<const Stream>(*parse<Stream>(document));

  const auto odd =
      parsed->streamWithArticleHeadersFilteredUsing([](const ArticleHeaderProtocol& header) {
        return header.identifier() == "1" || header.identifier() == "3";
      });
  EXPECT_EQ(uids(*odd), "a2b0");
  EXPECT_EQ(odd->sections()[0]->articleHeaders()[1]->identifier(), "3");
  EXPECT_EQ(odd->sections()[0]->pageID(), "page");
  EXPECT_EQ(odd->sponsoredArticles().size(), 3U);
  EXPECT_EQ(odd->appMetadata(), parsed->appMetadata());
  EXPECT_EQ(odd->premiumColourSet(), parsed->premiumColourSet());
  EXPECT_EQ(uids(*parsed), "a3b1");
  EXPECT_EQ(uids(*parsed->streamWithArticleHeadersFilteredUsing(nullptr)), "a3b1");
}

}  // namespace
}  // namespace paperloom::test
