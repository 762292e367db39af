#pragma once

#include <vector>

#include "paperloom/model/Article.h"
#include "paperloom/model/Asset.h"
#include "paperloom/platform/Export.h"

namespace paperloom {

// The rendition to show where there is room for `width` points, on a display of `pixelDensity`
// pixels a point: the narrowest that has a pixel for each of the display's, else the widest. Of
// several of that width the first. Null for an asset without renditions; lives as long as the
// asset. Pure.
PAPERLOOM_EXPORT const Asset::Rendition* renditionFor(const Asset& asset, double width,
                                                      double pixelDensity = 1);
const Asset::Rendition* renditionFor(const Asset&& asset, double width,
                                     double pixelDensity = 1) = delete;

// The assets of an article's lead and body in their order: images, and the stills of videos. Pure.
PAPERLOOM_EXPORT std::vector<Asset> assetsOf(const ArticleProtocol& article);

}  // namespace paperloom
