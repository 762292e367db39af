#include "fuzz/DocumentFuzz.h"
#include "paperloom/model/ArticleParser.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  using namespace paperloom;
  const auto article = fuzz::parsed(ArticleParser(), bytes, size);
  if (!article) return 0;
  fuzz::require(article->sponsored() == (article->sponsor() != nullptr));
  fuzz::require(!article->canInjectOutbrain() || article->wallType().caseName() == "none");
  for (const auto& item : article->contents()) fuzz::require(!item.caseName().empty());
  return 0;
}
