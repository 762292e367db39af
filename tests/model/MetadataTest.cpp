#include <gtest/gtest.h>

#include "paperloom/model/AppMetadata.h"
#include "tests/model/Documents.h"

namespace paperloom::test {
namespace {

using Cards = std::vector<std::string>;

TEST(SectionMetaDataTest, everyRequiredValueFailsTheSectionWithOneText) {
  expectRequired<SectionMetaData>(sectionMetadata("a"),
                                  "parsingFailed: failed to parse JSON into section meta data");
}

TEST(SectionMetaDataTest, unknownCustomizationMeansDisabledByDefault) {
  const std::pair<const char*, const char*> table[] = {
      {"alwaysEnabled", "alwaysEnabled"},         {"enabledByDefault", "enabledByDefault"},
      {"disabledByDefault", "disabledByDefault"}, {"hidden", "disabledByDefault"},
      {"AlwaysEnabled", "disabledByDefault"},     {"", "disabledByDefault"}};
  for (const auto& [text, name] : table) {
    const auto parsed =
        parse<SectionMetaData>(with(sectionMetadata("a"), {{"customization", text}}));
    EXPECT_EQ(caseName((*parsed)->customization()), name) << text;
  }
}

TEST(SectionMetaDataTest, fallbackCardsAreReadOnlyForACarousel) {
  struct Row {
    json carousel, standard, premium;
    std::optional<std::pair<Cards, Cards>> expected;
  };
  const Row table[] = {
      {absent, {"a"}, {"p"}, std::nullopt},   {false, {"a"}, {"p"}, std::nullopt},
      {"true", {"a"}, {"p"}, std::nullopt},   {1, {"a"}, absent, std::nullopt},
      {true, absent, absent, std::nullopt},   {true, {"a"}, absent, {{{"a"}, {}}}},
      {true, absent, {"p"}, {{{}, {"p"}}}},   {true, json::array(), absent, {{{}, {}}}},
      {true, {"a", 3}, {"p"}, {{{}, {"p"}}}}, {true, "a", {nullptr}, std::nullopt},
  };
  for (const Row& row : table) {
    SCOPED_TRACE(row.carousel.dump() + row.standard.dump() + row.premium.dump());
    const auto parsed = parse<SectionMetaData>(
        with(sectionMetadata("a"), {{"displayAsCarousel", row.carousel},
                                    {"fallbackCardsOverride", row.standard},
                                    {"premiumFallbackCardsOverride", row.premium}}));
    const auto cards = (*parsed)->fallbackCards();
    ASSERT_EQ(cards != nullptr, row.expected.has_value());
    if (!cards) continue;
    EXPECT_EQ(std::pair(cards->standard(), cards->premium()), *row.expected);
  }
}

TEST(GlobalMetadataTest, coloursAreRequiredAndFallbackCardsAreNot) {
  expectRequired<GlobalMetadata>(globalMetadata,
                                 "parsingFailed: failed to parse JSON into global metadata");
  EXPECT_EQ((*parse<GlobalMetadata>(globalMetadata))->fallbackCards(), nullptr);
  const auto both =
      with(globalMetadata, {{"fallbackCards", {"a", 3}}, {"premiumFallbackCards", {"p"}}});
  const auto cards = (*parse<GlobalMetadata>(both))->fallbackCards();
  EXPECT_EQ(std::pair(cards->standard(), cards->premium()), std::pair(Cards{}, Cards{"p"}));
}

TEST(AppMetadataTest, anyBadPartFailsTheWholeWithItsOwnText) {
  const std::string own = "parsingFailed: failed to parse JSON into app meta data";
  const json good = config({"a", "b", "a"});
  json badSection = good;
  badSection["sectionMetaData"][1].erase("showSponsored");
  badSection["globalMetaData"] = json::object();
  const std::pair<json, std::string> table[] = {
      {good, "parsed"},
      {config({}), "parsed"},
      {with(good, {{"sectionMetaData", absent}}), own},
      {with(good, {{"sectionMetaData", json::object()}}), own},
      {with(good, {{"sectionMetaData", {sectionMetadata("a"), "b"}}}), own},
      {with(good, {{"globalMetaData", json::array()}}), own},
      {with(good, {{"globalMetaData", json::object()}}),
       "parsingFailed: failed to parse JSON into global metadata"},
      {badSection, "parsingFailed: failed to parse JSON into section meta data"},
  };
  for (const auto& [document, expected] : table) {
    EXPECT_EQ(failure<AppMetadata>(document), expected) << document;
  }
}

}  // namespace
}  // namespace paperloom::test
