#include "fuzz/DocumentFuzz.h"
#include "paperloom/model/DocumentParsers.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  using namespace paperloom;
  const auto stream = fuzz::parsed(StreamParser(), bytes, size);
  if (!stream) return 0;
  const auto& metadata = stream->appMetadata()->sectionMetadata();
  fuzz::require(metadata.size() == stream->sections().size());
  for (std::size_t i = 0; i < metadata.size(); ++i) {
    fuzz::require(metadata[i]->uid() == stream->sections()[i]->uid());
    for (const auto& card : stream->sections()[i]->articleHeaders()) {
      fuzz::require(URL::parse(card->URL().absoluteString()).has_value());
      fuzz::require(!card->cardAsset() || !card->cardAsset()->renditions.empty());
    }
  }
  const auto whole = std::dynamic_pointer_cast<const Stream>(stream);
  const auto none = whole->streamWithArticleHeadersFilteredUsing([](const auto&) { return false; });
  fuzz::require(none->sections().size() == metadata.size());
  return 0;
}
