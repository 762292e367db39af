#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "paperloom/model/AppMetadata.h"
#include "paperloom/model/Article.h"
#include "paperloom/model/Stream.h"
#include "paperloom/platform/Data.h"
#include "paperloom/platform/Image.h"

namespace paperloom::sample {

// What the sample service sends for a target such as "/config", "/stream?uids=news,sport",
// "/articles/eel-count" or "/images/harbour-640.jpg", ready-made and without any network; its links
// begin with `baseURL`. For another target this throws std::invalid_argument. Any thread.
Data document(std::string_view target, std::string_view baseURL = "http://paper.example");

// The paths of all its documents but "/stream", in alphabetical order. Any thread.
std::vector<std::string> documentPaths();

// The same documents as records: the configuration, a front page of these sections (an empty list
// means all), the article of that name, the picture of that file name. What there is none of throws
// as above. As with every stream that is parsed, stream() sets the shared coordinator's current app
// metadata. Any thread.
std::shared_ptr<const AppMetadataProtocol> appMetadata();
std::shared_ptr<const StreamProtocol> stream(const std::vector<std::string>& sections = {});
std::shared_ptr<const ArticleProtocol> article(std::string_view name);
std::shared_ptr<const Image> image(std::string_view fileName);

}  // namespace paperloom::sample
