#include "paperloom/model/Stream.h"

#include <algorithm>
#include <string_view>
#include <unordered_map>

#include "paperloom/model/CurrentAppMetadata.h"
#include "paperloom/model/internal/Reading.h"
#include "paperloom/model/internal/Reserve.h"
#include "paperloom/platform/Events.h"

namespace paperloom {
namespace {

SectionList parseSections(const JSONObjectList& list) {
  SectionList sections;
  reserveFor(sections, list);
  std::size_t index = 0;
  for (const JSONObject& json : list) {
    // One bad section never fails the stream.
    if (auto section = Section::parse(json)) {
      sections.push_back(std::move(*section));
    } else {
      leaveOut(json, "the section is left out");
      Events::tell([&] {
        return event::PartDropped{event::PartDropped::Part::section, "", index,
                                  section.error().details()};
      });
    }
    ++index;
  }
  return sections;
}

// One metadata entry per section, in the sections' order: the first of its uid. Nothing when a
// section has none.
std::optional<SectionMetadataList> join(const SectionList& sections,
                                        const SectionMetadataList& metadata) {
  std::unordered_map<std::string_view, std::size_t> firstOfUid;
  for (std::size_t i = 0; i < metadata.size(); ++i) firstOfUid.emplace(metadata[i]->uid(), i);

  SectionMetadataList taken;
  taken.reserve(sections.size());
  for (const auto& section : sections) {
    const auto found = firstOfUid.find(section->uid());
    if (found == firstOfUid.end()) return std::nullopt;
    taken.push_back(metadata[found->second]);
  }
  return taken;
}

void tellOfMissingMetadata(const JSONObjectList& sections, const SectionMetadataList& metadata) {
  for (const JSONObject& section : sections) {
    if (section.listener() == nullptr) return;
    const auto uid = section.stringView("uid");
    const auto isOfUid = [&](const auto& each) { return uid == each->uid(); };
    if (!uid || std::any_of(metadata.begin(), metadata.end(), isOfUid)) continue;
    refuse(section, "uid", rule::noMetadata);
    section.listener()->failed(section.place());
  }
}

Result<ArticleHeaderList> parseSponsored(const JSONObjectList& list) {
  ArticleHeaderList cards;
  reserveFor(cards, list);
  for (const JSONObject& json : list) {
    auto card = ArticleHeader::parse(json);
    if (!card) return tl::make_unexpected(std::move(card.error()));
    cards.push_back(std::move(*card));
  }
  return cards;
}

}  // namespace

Result<std::shared_ptr<const StreamProtocol>> Stream::parse(const JSONObject& json) {
  const auto sectionObjects = json.objects("sections");
  const auto sponsoredObjects = json.objects("sponsoredContent");
  if (!sectionObjects || !sponsoredObjects) {
    return parsingFailed(json, "failed to parse JSON into Stream");
  }
  const auto metadata = AppMetadata::parse(json);
  if (!metadata) {
    return parsingFailed("could not get section metadata while preparing stream");
  }
  CurrentAppMetadata::shared().set(*metadata);

  SectionList sections = parseSections(*sectionObjects);
  auto sectionMetadata = join(sections, (*metadata)->sectionMetadata());
  if (!sectionMetadata) {
    tellOfMissingMetadata(*sectionObjects, (*metadata)->sectionMetadata());
    return parsingFailed("section uids did not match section metadata uids");
  }
  auto sponsored = parseSponsored(*sponsoredObjects);
  if (!sponsored) return tl::make_unexpected(std::move(sponsored.error()));

  const auto& global = (*metadata)->globalMetadata();
  return std::make_shared<const Stream>(Fields{
      .premiumColourSet = ColourSet{.primaryColourHex = global->premiumPrimaryColour(),
                                    .secondaryColourHex = global->premiumSecondaryColour(),
                                    .accessibleColourHex = global->premiumAccessibleColour()},
      .premiumLabelColourSet =
          LabelColourSet{
              .labelColourOnNormalBackground = global->premiumLabelColourOnNormalBackground(),
              .labelColourOnSecondaryBackground =
                  global->premiumLabelColourOnSecondaryBackground()},
      .sections = std::move(sections),
      .sponsoredArticles = std::move(*sponsored),
      .appMetadata = std::make_shared<const AppMetadata>(std::move(*sectionMetadata), global)});
}

std::shared_ptr<const StreamProtocol> Stream::streamWithArticleHeadersFilteredUsing(
    const std::function<bool(const ArticleHeaderProtocol&)>& articleHeaderFilter) const {
  Fields filtered = fields_;
  for (auto& section : filtered.sections) {
    ArticleHeaderList headers;
    for (const auto& header : section->articleHeaders()) {
      if (!articleHeaderFilter || articleHeaderFilter(*header)) headers.push_back(header);
    }
    section =
        std::make_shared<const Section>(section->uid(), std::move(headers), section->pageID());
  }
  return std::make_shared<const Stream>(std::move(filtered));
}

}  // namespace paperloom
