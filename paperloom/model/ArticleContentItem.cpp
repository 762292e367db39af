#include "paperloom/model/ArticleContentItem.h"

#include "paperloom/model/internal/Reading.h"
#include "paperloom/model/internal/Reserve.h"

namespace paperloom {
namespace {

using Item = ArticleContentItem;

Item text(const JSONObject& json) {
  auto text = json.string("text");
  if (!text) return {};
  return {Item::Body{std::move(*text)}};
}

Item heading(const JSONObject& json) {
  const auto level = json.integer("level");
  auto text = json.string("text");
  if (!level || !text) return {};
  const auto style = caseOf<HeadingStyle>(json, "level", *level);
  if (!style) return {};
  return {Item::Heading{*style, std::move(*text)}};
}

// The block itself carries the asset's keys.
template <class Block>
Item asset(const JSONObject& json) {
  auto asset = Asset::parse(json);
  if (!asset) return {};
  return {Block{std::move(*asset)}};
}

Item youtube(const JSONObject& json) {
  auto identifier = json.string("videoEmbedId");
  if (!identifier) return {};
  return {Item::Youtube{std::move(*identifier)}};
}

Item tweet(const JSONObject& json) {
  auto identifier = json.string("tweetId");
  if (!identifier) return {};
  return {Item::Tweet{std::move(*identifier)}};
}

Item particle(const JSONObject& json) {
  auto source = json.string("embedSrc");
  if (!source) return {};
  return {Item::Particle{
      {{"text", json.string("text").value_or("")}, {"embedSrc", std::move(*source)}}}};
}

Item livepost(const JSONObject& json) {
  const auto time = dateUnder(json, "time");
  if (!time) return {};
  return {Item::Livepost{*time}};
}

struct Rule {
  std::string_view type;
  Item (*block)(const JSONObject&);
};

constexpr Rule rules[] = {
    {"text", text},
    {"heading", heading},
    {"image", asset<Item::Image>},
    {"video", asset<Item::Video>},
    {"youtube", youtube},
    {"tweet", tweet},
    {"particle", particle},
    {"livepost", livepost},
};

constexpr std::string_view notShown = "the block is not shown";

void tellOfUnknownType(const JSONObject& json, JSONListener& listener) {
  std::string accepted;
  for (const Rule& each : rules) {
    if (!accepted.empty()) accepted += ", ";
    accepted += each.type;
  }
  listener.refused(json.place(), "type", rule::unknownValue, accepted);
  listener.leftOut(json.place(), notShown);
}

Item block(std::string_view type, const JSONObject& json) {
  for (const Rule& rule : rules) {
    if (rule.type != type) continue;
    Item item = rule.block(json);
    if (std::holds_alternative<Item::Unknown>(item.value)) leaveOut(json, notShown);
    return item;
  }
  if (JSONListener* const listener = json.listener()) tellOfUnknownType(json, *listener);
  return {};
}

}  // namespace

std::vector<ArticleContentItem> ArticleContentItem::parseBody(const JSONObjectList& body) {
  std::vector<ArticleContentItem> items;
  reserveFor(items, body);
  for (const JSONObject& json : body) {
    if (const auto type = json.stringView("type")) {
      items.push_back(block(*type, json));
    } else {
      leaveOut(json, notShown);
    }
  }
  return items;
}

}  // namespace paperloom
