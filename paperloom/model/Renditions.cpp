#include "paperloom/model/Renditions.h"

namespace paperloom {

const Asset::Rendition* renditionFor(const Asset& asset, double width, double pixelDensity) {
  const double needed = width * pixelDensity;
  const Asset::Rendition* enough = nullptr;
  const Asset::Rendition* widest = nullptr;
  for (const Asset::Rendition& one : asset.renditions) {
    const bool isEnough = static_cast<double>(one.width) >= needed;
    if (isEnough && (enough == nullptr || one.width < enough->width)) enough = &one;
    if (widest == nullptr || one.width > widest->width) widest = &one;
  }
  return enough != nullptr ? enough : widest;
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

}  // namespace paperloom
