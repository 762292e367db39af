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

// What a reader who follows every link from the front page meets.
struct Crawl {
  std::string base;
  std::set<std::string> paths;  // links to the service itself
  std::set<std::string> facts;  // every `key value` of a text, number or boolean

  void read(const json& document, const std::string& key = "") {
    if (document.is_structured()) {
      for (const auto& [name, part] : document.items())
        read(part, document.is_array() ? key : name);
      return;
    }
    const std::string text = document.is_string() ? document.get<std::string>() : document.dump();
    EXPECT_EQ(text.find("{{"), std::string::npos) << text;
    facts.insert(key + " " + text);
    if (text.starts_with(base)) paths.insert(text.substr(base.size()));
  }
};

TEST(SampleContent, everyLinkButOneIsAnsweredAndEveryKindOfContentIsMet) {
  const RunningService running;
  const json stream = getJson(running, "/stream");
  std::size_t cards = 0;
  for (const json& section : stream.at("sections")) cards += section.at("previews").size();
  EXPECT_GE(cards, 60U);

  Crawl crawl{running.service->baseURL(), {}, {}};
  crawl.read(stream);
  std::set<std::string> seen;
  std::map<std::string, int> types;
  while (!crawl.paths.empty()) {
    const std::string path = crawl.paths.extract(crawl.paths.begin()).value();
    if (!seen.insert(path).second) continue;
    const auto result = running.client->Get(path);
    ASSERT_TRUE(result) << path;
    const std::string type = result->get_header_value("Content-Type");
    ++types[result->status == 200 ? type : "dead"];
    if (type == "application/json") crawl.read(json::parse(result->body, nullptr, false));
  }
  EXPECT_LE(types["dead"], 1);
  EXPECT_GE(types["application/json"], 25);
  for (const char* type : {"image/jpeg", "image/png", "image/webp"}) EXPECT_GT(types[type], 0);
  for (const char* fact : {"cardType small",
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
                           "type text",
                           "type heading",
                           "type image",
                           "type video",
                           "type youtube",
                           "type tweet",
                           "type particle",
                           "type livepost",
                           "type poll",
                           "level 1",
                           "level 2",
                           "level 3",
                           "level 4",
                           "level 5",
                           "level 6",
                           "level 7"}) {
    EXPECT_TRUE(crawl.facts.contains(fact)) << fact;
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
  EXPECT_EQ(running.client->Delete("/identity/entitlement")->status, 405);

  const auto head = running.client->Head("/stream");
  ASSERT_TRUE(head);
  EXPECT_EQ(head->status, 200);
  EXPECT_TRUE(head->body.empty());
  EXPECT_EQ(head->get_header_value("Content-Length"),
            std::to_string(running.client->Get("/stream")->body.size()));
}

}  // namespace
}  // namespace paperloom::sample
