#include <map>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "tests/service/RunningService.h"

namespace paperloom::sample {
namespace {

using nlohmann::json;

json getJson(const RunningService& running, const std::string& path) {
  const auto result = running.client->Get(path);
  if (!result || result->status != 200) return nullptr;
  return json::parse(result->body, nullptr, false);
}

std::vector<std::string> uidsOf(const json& stream) {
  std::vector<std::string> uids;
  for (const json& section : stream.at("sections")) uids.push_back(section.at("uid"));
  return uids;
}

TEST(SampleContent, streamHoldsTheSectionsAskedForInTheOrderAskedFor) {
  const RunningService running;
  const auto everything = uidsOf(getJson(running, "/stream"));
  EXPECT_GE(everything.size(), 6U);
  const std::map<std::string, std::vector<std::string>> cases = {
      {"/stream?uids=", everything},
      {"/stream?uids=sport,news", {"sport", "news"}},
      {"/stream?uids=sport%2Cnews", {"sport", "news"}},
      {"/stream?uids=nowhere,culture,culture,,x", {"culture"}},
      {"/stream?uids=nowhere", {}},
  };
  for (const auto& [path, uids] : cases) {
    const json stream = getJson(running, path);
    ASSERT_TRUE(stream.is_object()) << path;
    EXPECT_EQ(uidsOf(stream), uids) << path;
    EXPECT_EQ(stream.at("sectionMetaData").size(), everything.size()) << path;
    EXPECT_TRUE(stream.at("globalMetaData").is_object()) << path;
    EXPECT_FALSE(stream.at("sponsoredContent").empty()) << path;
  }
}

// Everything that a text in `document` below the service's base URL points to.
void collectOwnLinks(const json& document, const std::string& base, std::set<std::string>& paths) {
  if (document.is_string()) {
    const std::string text = document;
    EXPECT_EQ(text.find("{{"), std::string::npos) << text;
    if (text.starts_with(base)) paths.insert(text.substr(base.size()));
  } else if (document.is_structured()) {
    for (const json& part : document) collectOwnLinks(part, base, paths);
  }
}

TEST(SampleContent, everyLinkOfTheNewspaperIsAnsweredButOne) {
  const RunningService running;
  const std::map<std::string, std::string> signatures = {
      {"image/jpeg", "\xff\xd8\xff"}, {"image/png", "\x89PNG"}, {"image/webp", "RIFF"}};
  std::set<std::string> seen;
  std::set<std::string> queue;
  std::set<std::string> types;
  int dead = 0;
  collectOwnLinks(getJson(running, "/stream"), running.service->baseURL(), queue);
  while (!queue.empty()) {
    const std::string path = queue.extract(queue.begin()).value();
    if (!seen.insert(path).second) continue;
    const auto result = running.client->Get(path);
    ASSERT_TRUE(result) << path;
    if (result->status == 404) ++dead;
    if (result->status != 200) continue;
    const std::string type = result->get_header_value("Content-Type");
    types.insert(type);
    if (type == "application/json") {
      const json article = json::parse(result->body, nullptr, false);
      ASSERT_TRUE(article.is_object()) << path;
      EXPECT_TRUE(article.value("headline", json()).is_string()) << path;
      collectOwnLinks(article, running.service->baseURL(), queue);
    } else {
      ASSERT_TRUE(signatures.contains(type)) << path << " is " << type;
      EXPECT_TRUE(result->body.starts_with(signatures.at(type))) << path;
    }
  }
  EXPECT_LE(dead, 1);
  EXPECT_EQ(types.size(), 4U);
}

void count(const json& object, const char* key, std::multiset<std::string>& kinds) {
  if (!object.contains(key)) return;
  const json& value = object.at(key);
  kinds.insert(std::string(key) + " " +
               (value.is_string() ? value.get<std::string>() : value.dump()));
}

TEST(SampleContent, theNewspaperUsesEveryKindOfCardArticleAndBlock) {
  const RunningService running;
  const json stream = getJson(running, "/stream");
  std::multiset<std::string> kinds;
  std::set<std::string> articles;
  std::size_t cards = 0;
  for (const json& section : stream.at("sections")) {
    for (const json& card : section.at("previews")) {
      ++cards;
      count(card, "cardType", kinds);
      if (card.contains("url")) articles.insert(card.at("url"));
    }
  }
  EXPECT_GE(cards, 60U);
  EXPECT_GE(articles.size(), 25U);
  for (const std::string& url : articles) {
    const json article = getJson(running, url.substr(running.service->baseURL().size()));
    if (article.is_null()) continue;
    for (const char* key : {"type", "callToAction", "premium", "starRating", "sponsored"}) {
      count(article, key, kinds);
    }
    count(article.value("registerWall", json::object()), "dismissType", kinds);
    for (const json& block : article.at("body")) {
      const std::string type = block.value("type", "none");
      kinds.insert("block " + type);
      if (type == "heading") count(block, "level", kinds);
    }
  }
  for (const char* kind : {"cardType small",
                           "cardType medium",
                           "cardType bespoke",
                           "cardType advert",
                           "type standardArticle",
                           "type videoArticle",
                           "type liveArticle",
                           "type commentArticle",
                           "type unknown",
                           "callToAction none",
                           "callToAction loginOrPurchase",
                           "callToAction purchase",
                           "dismissType hard",
                           "dismissType soft",
                           "premium true",
                           "starRating 4",
                           "sponsored true",
                           "block text",
                           "block heading",
                           "block image",
                           "block video",
                           "block youtube",
                           "block tweet",
                           "block particle",
                           "block livepost",
                           "block none",
                           "level 1",
                           "level 2",
                           "level 3",
                           "level 4",
                           "level 5",
                           "level 6",
                           "level 7"}) {
    EXPECT_TRUE(kinds.contains(kind)) << kind;
  }
}

TEST(SampleContent, sponsoredCardsAndMetaDataAreWhole) {
  const RunningService running;
  const json stream = getJson(running, "/stream");
  EXPECT_EQ(getJson(running, "/config").at("globalMetaData"), stream.at("globalMetaData"));
  for (const json& card : stream.at("sponsoredContent")) {
    for (const char* key : {"headline", "url", "qrvId"}) EXPECT_TRUE(card.at(key).is_string());
  }
  for (const json& entry : stream.at("sectionMetaData")) {
    for (const char* key : {"uid", "displayName", "primaryColour", "secondaryColour",
                            "accessibleColour", "customization"}) {
      EXPECT_TRUE(entry.at(key).is_string()) << entry;
    }
    EXPECT_TRUE(entry.at("showSponsored").is_boolean()) << entry;
  }
  for (const auto& [key, value] : stream.at("globalMetaData").items()) {
    EXPECT_TRUE(value.is_string() || value.is_array()) << key;
  }
}

TEST(SampleContent, validatorsDecideBetween200And304) {
  const RunningService running;
  const auto first = running.client->Get("/config");
  ASSERT_TRUE(first);
  const std::string tag = first->get_header_value("ETag");
  const std::string changed = first->get_header_value("Last-Modified");
  EXPECT_EQ(first->get_header_value("Cache-Control"), "max-age=60");
  const std::vector<std::pair<httplib::Headers, int>> cases = {
      {{{"If-None-Match", tag}}, 304},
      {{{"If-None-Match", "\"other\", W/" + tag}}, 304},
      {{{"If-None-Match", "*"}}, 304},
      {{{"If-None-Match", "\"other\""}}, 200},
      {{{"If-None-Match", "\"other\""}, {"If-Modified-Since", changed}}, 200},
      {{{"If-None-Match", tag}, {"Accept-Encoding", "gzip"}}, 200},
      {{{"If-Modified-Since", changed}}, 304},
      {{{"If-Modified-Since", "Thu, 01 Jan 2026 00:00:00 GMT"}}, 304},
      {{{"If-Modified-Since", "Thu, 01 Jan 2015 00:00:00 GMT"}}, 200},
      {{{"If-Modified-Since", "last week"}}, 200},
      {{{"Range", "bytes=0-9"}}, 200},
  };
  for (auto [headers, status] : cases) {
    headers.emplace("Connection", "close");  // this client waits for the body of a 304 otherwise
    const auto result = running.client->Get("/config", headers);
    ASSERT_TRUE(result) << status << " " << headers.rbegin()->second;
    EXPECT_EQ(result->status, status) << status << " " << headers.rbegin()->second;
    EXPECT_EQ(result->body, status == 304 ? "" : first->body)
        << status << " " << headers.rbegin()->second;
    EXPECT_EQ(result->has_header("Content-Length"), status == 200);
  }
  EXPECT_NE(running.client->Get("/stream?uids=news")->get_header_value("ETag"),
            running.client->Get("/stream?uids=sport")->get_header_value("ETag"));
}

TEST(SampleContent, otherMethodsAndPathsAreRefusedWithAReason) {
  const RunningService running;
  const auto missing = running.client->Get("/articles/nothing");
  ASSERT_TRUE(missing);
  EXPECT_EQ(missing->status, 404);
  EXPECT_TRUE(json::parse(missing->body).contains("error"));
  EXPECT_EQ(running.status("/articles/../config.json"), 404);
  EXPECT_EQ(running.status("/" + std::string(7000, 'a')), 404);
  EXPECT_EQ(running.client->Post("/config", "{}", "application/json")->status, 405);

  const auto head = running.client->Head("/stream");
  ASSERT_TRUE(head);
  EXPECT_EQ(head->status, 200);
  EXPECT_TRUE(head->body.empty());
  EXPECT_EQ(head->get_header_value("Content-Length"),
            std::to_string(running.client->Get("/stream")->body.size()));
}

}  // namespace
}  // namespace paperloom::sample
