#include "paperloom/model/AppMetadata.h"

#include "paperloom/model/JSONParsing.h"
#include "paperloom/model/internal/Reserve.h"

namespace paperloom {

Result<std::shared_ptr<const AppMetadataProtocol>> AppMetadata::parse(const JSONObject& json) {
  const auto sections = json.objects("sectionMetaData");
  const auto global = json.object("globalMetaData");
  if (!sections || !global) return parsingFailed(json, "failed to parse JSON into app meta data");

  SectionMetadataList list;
  reserveFor(list, *sections);
  for (const JSONObject& section : *sections) {
    auto metadata = SectionMetaData::parse(section);
    if (!metadata) return tl::make_unexpected(std::move(metadata.error()));
    list.push_back(std::move(*metadata));
  }
  auto globalMetadata = GlobalMetadata::parse(*global);
  if (!globalMetadata) return tl::make_unexpected(std::move(globalMetadata.error()));
  return std::make_shared<const AppMetadata>(std::move(list), std::move(*globalMetadata));
}

}  // namespace paperloom
