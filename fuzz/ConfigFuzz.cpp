#include "fuzz/DocumentFuzz.h"
#include "paperloom/model/DocumentParsers.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  using namespace paperloom;
  const auto config = fuzz::parsed(ConfigParser(), bytes, size);
  if (!config) return 0;
  fuzz::require(config->globalMetadata() != nullptr);
  for (const auto& section : config->sectionMetadata()) {
    fuzz::require(section->displayAsCarousel() || !section->fallbackCards());
  }
  return 0;
}
