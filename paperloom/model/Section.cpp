#include "paperloom/model/Section.h"

#include "paperloom/model/internal/Reading.h"
#include "paperloom/model/internal/Reserve.h"
#include "paperloom/platform/Events.h"

namespace paperloom {

Result<std::shared_ptr<const SectionProtocol>> Section::parse(const JSONObject& json) {
  auto uid = json.string("uid");
  const auto previews = json.objects("previews");
  if (!uid || !previews) return parsingFailed(json, "failed to parse JSON into section");

  ArticleHeaderList headers;
  reserveFor(headers, *previews);
  std::size_t index = 0;
  for (const JSONObject& preview : *previews) {
    // One bad card never fails its section.
    if (auto header = ArticleHeader::parse(preview)) {
      headers.push_back(std::move(*header));
    } else {
      leaveOut(preview, "the card is left out");
      Events::tell([&] {
        return event::PartDropped{event::PartDropped::Part::card, *uid, index,
                                  header.error().details()};
      });
    }
    ++index;
  }
  return std::make_shared<const Section>(std::move(*uid), std::move(headers),
                                         json.string("pageId"));
}

}  // namespace paperloom
