#include "apps/reader/Renditions.h"

namespace paperloom::reader {

const URL& pictureOf(const Asset& asset) {
  constexpr std::int64_t enough = 600;
  for (const Asset::Rendition& rendition : asset.renditions) {
    if (rendition.width >= enough) return rendition.url;
  }
  return asset.renditions.back().url;
}

std::vector<Asset> assetsOf(const ArticleProtocol& article) {
  std::vector<Asset> assets;
  const auto take = [&](const ArticleContentItem& item) {
    if (const auto* image = std::get_if<ArticleContentItem::Image>(&item.value)) {
      assets.push_back(image->asset);
    } else if (const auto* video = std::get_if<ArticleContentItem::Video>(&item.value)) {
      assets.push_back(video->asset);
    }
  };
  take(article.leadContent());
  for (const ArticleContentItem& item : article.contents()) take(item);
  return assets;
}

}  // namespace paperloom::reader
