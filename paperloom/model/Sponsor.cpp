#include "paperloom/model/Sponsor.h"

#include "paperloom/model/internal/Reading.h"

namespace paperloom {

Result<std::shared_ptr<const SponsorProtocol>> Sponsor::parse(const JSONObject& json) {
  const auto image = json.string("image");
  auto campaignId = json.string("campaignId");
  if (!image || !campaignId) return parsingFailed(json, "failed to parse JSON into sponsor");
  auto imageUrl = URL::parse(*image);
  if (!imageUrl) {
    refuse(json, "image", rule::invalidURL);
    return parsingFailed(json, "invalid url [ " + *image + " ] for sponsor with url " +
                                   json.debugDescription("url"));
  }
  auto url = urlUnder(json, "url");
  return std::make_shared<const Sponsor>(Fields{.name = json.string("name"),
                                                .byline = json.string("byline"),
                                                .imageUrl = std::move(*imageUrl),
                                                .url = std::move(url),
                                                .campaignId = std::move(*campaignId)});
}

}  // namespace paperloom
