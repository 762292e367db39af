#pragma once

#include <memory>

#include "paperloom/model/AppMetadata.h"
#include "paperloom/model/ParserProtocol.h"
#include "paperloom/model/Stream.h"
#include "paperloom/platform/Export.h"
#include "paperloom/platform/Image.h"

namespace paperloom {

// The parsers that the data coordinators use for the documents of the content service, for hosts
// that have a document's bytes from elsewhere. ArticleParser is the one for articles.

PAPERLOOM_EXPORT std::shared_ptr<const ParserProtocol<std::shared_ptr<const AppMetadataProtocol>>>
makeConfigParser();

// Its parse sets the shared data coordinator's current app metadata, as Stream::parse does.
PAPERLOOM_EXPORT std::shared_ptr<const ParserProtocol<std::shared_ptr<const StreamProtocol>>>
makeStreamParser();

PAPERLOOM_EXPORT std::shared_ptr<const ParserProtocol<std::shared_ptr<const Image>>>
makeImageParser();

}  // namespace paperloom
