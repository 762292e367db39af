#pragma once

#include <vector>

#include "paperloom/model/Article.h"
#include "paperloom/model/Asset.h"
#include "paperloom/platform/URL.h"

namespace paperloom::reader {

// The rendition that suits a terminal: the smallest that is large enough, else the largest. The
// asset holds at least one.
const URL& pictureOf(const Asset& asset);

// The assets of an article's lead and body, images and the stills of videos.
std::vector<Asset> assetsOf(const ArticleProtocol& article);

}  // namespace paperloom::reader
