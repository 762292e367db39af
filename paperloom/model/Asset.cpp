#include "paperloom/model/Asset.h"

#include <algorithm>
#include <tuple>

#include "paperloom/model/internal/Reading.h"
#include "paperloom/model/internal/Reserve.h"

namespace paperloom {
namespace {

std::vector<Asset::Rendition> parseRenditions(const JSONObjectList& list) {
  std::vector<Asset::Rendition> renditions;
  reserveFor(renditions, list);
  for (const JSONObject& json : list) {
    const auto text = json.stringView("url");
    const auto width = json.integer("width");
    const auto height = json.integer("height");
    if (text && width && height) {
      if (auto url = URL::parse(*text)) {
        renditions.emplace_back(std::move(*url), *width, *height);
        continue;
      }
    }
    if (json.listener() != nullptr) static_cast<void>(urlUnder(json, "url"));  // may be at fault
    leaveOut(json, "the picture is not there in this size");
  }
  return renditions;
}

// Smallest first. "At least as wide and as high" alone orders neither equal sizes nor a wide one
// against a tall one, which no sort may be given; by width and then height is an order that agrees
// with it wherever it says something.
void sortBySize(std::vector<Asset::Rendition>& renditions) {
  const auto isSmaller = [](const Asset::Rendition& a, const Asset::Rendition& b) {
    return std::tie(a.width, a.height) < std::tie(b.width, b.height);
  };
  const auto isNotLarger = [&](const auto& a, const auto& b) { return !isSmaller(b, a); };
  // Feeds write them in order, one way or the other.
  if (std::adjacent_find(renditions.begin(), renditions.end(), isNotLarger) == renditions.end()) {
    std::reverse(renditions.begin(), renditions.end());
  } else if (!std::is_sorted(renditions.begin(), renditions.end(), isSmaller)) {
    std::stable_sort(renditions.begin(), renditions.end(), isSmaller);
  }
}

}  // namespace

Result<Asset> Asset::parse(const JSONObject& json) {
  const auto typeText = json.stringView("type");
  const auto list = json.objects("renditions");
  if (!typeText || !list) return parsingFailed(json, "failed to parse JSON into Asset");
  const auto type = caseOf<Type>(json, "type", *typeText);
  if (!type) return parsingFailed(json, "invalid asset type found");
  std::optional<std::string> videoEmbedId;
  if (*type == Type::Video) {
    videoEmbedId = json.string("videoEmbedId");
    if (!videoEmbedId) return parsingFailed(json, "No video embed Id");
  }

  auto renditions = parseRenditions(*list);
  if (renditions.empty()) {
    refuse(json, "renditions", rule::noRenditions);
    return parsingFailed(json, "No renditions found");
  }
  sortBySize(renditions);
  return Asset{.type = *type,
               .caption = json.string("caption"),
               .copyright = json.string("copyright"),
               .altText = json.string("altText"),
               .videoEmbedId = videoEmbedId ? std::move(videoEmbedId) : json.string("videoEmbedId"),
               .videoDuration = json.string("videoDuration"),
               .renditions = std::move(renditions)};
}

double Asset::aspectRatio() const {
  if (renditions.empty()) return 0;
  return static_cast<double>(renditions.front().height) /
         static_cast<double>(renditions.front().width);
}

}  // namespace paperloom
