#pragma once

#include <initializer_list>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>

#include "paperloom/model/JSONParsing.h"

namespace paperloom::test {

using nlohmann::json;

// One change to a good document: a value put under a key, or the key taken away.
struct Change {
  const char* key;
  json value;
};
inline const json absent = json(json::value_t::discarded);

inline json with(json document, std::initializer_list<Change> changes) {
  for (const auto& [key, value] : changes) {
    if (value.is_discarded()) {
      document.erase(key);
    } else {
      document[key] = value;
    }
  }
  return document;
}

// A result; to ask it for what it does not hold throws, and so fails the test.
template <class T>
struct Checked : Result<T> {
  const T& operator*() const { return this->value(); }
  const T* operator->() const { return &this->value(); }
};

template <JSONParsing Record>
Checked<Parsed<Record>> parse(const json& document) {
  const auto decoded = JSONDocument::parse(document.dump());
  return {Record::parse(*decoded->object())};
}

// The failure's text, or "parsed".
template <JSONParsing Record>
std::string failure(const json& document) {
  const auto result = parse<Record>(document);
  if (result) return "parsed";
  return std::string(caseName(result.error().which())) + ": " + result.error().details();
}

// The failures of `good` with each of its keys taken away, and with a value of another type.
template <JSONParsing Record>
void expectRequired(const json& good, const std::string& text) {
  ASSERT_EQ(failure<Record>(good), "parsed");
  for (const auto& [key, value] : good.items()) {
    for (const json& wrong : {absent, json(3), json(nullptr)}) {
      EXPECT_EQ(failure<Record>(with(good, {{key.c_str(), wrong}})), text) << key << wrong;
    }
  }
}

inline const json rendition = {{"url", "https://i.example/1.jpg"}, {"width", 300}, {"height", 200}};
inline const json image = {{"type", "image"}, {"renditions", {rendition}}};
inline const json card = {
    {"headline", "A headline"}, {"url", "https://n.example/1.json"}, {"qrvId", "one"}};
inline const json wall = {{"headline", "Register"},       {"dismissType", "soft"},
                          {"primaryColour", "#1"},        {"secondaryColour", ""},
                          {"accessibleColour", "#3"},     {"registerButtonText", "Join"},
                          {"loginButtonText", "Sign in"}, {"channel", "news"}};
inline const json globalMetadata = {{"premiumPrimaryColour", "#1"},
                                    {"premiumSecondaryColour", "#2"},
                                    {"premiumAccessibleColour", "#3"},
                                    {"premiumLabelColourOnNormalBackground", "#4"},
                                    {"premiumLabelColourOnSecondaryBackground", "#5"}};

inline json sectionMetadata(const char* uid) {
  return {{"uid", uid},
          {"displayName", "Name"},
          {"primaryColour", "#1"},
          {"secondaryColour", "#2"},
          {"accessibleColour", "#3"},
          {"customization", "alwaysEnabled"},
          {"showSponsored", true}};
}

inline json section(const char* uid, const json& previews = json::array({card})) {
  return {{"uid", uid}, {"previews", previews}, {"pageId", "page"}};
}

inline json config(std::initializer_list<const char*> uids) {
  json sections = json::array();
  for (const char* uid : uids) sections.push_back(sectionMetadata(uid));
  return {{"sectionMetaData", sections}, {"globalMetaData", globalMetadata}};
}

}  // namespace paperloom::test
