#pragma once

#include <nlohmann/json.hpp>

#include "paperloom/model/AppMetadata.h"
#include "paperloom/model/Article.h"
#include "paperloom/model/Stream.h"
#include "paperloom/network/ProvenanceWords.h"
#include "paperloom/platform/Image.h"
#include "paperloom/platform/OfflineSets.h"

namespace paperloom::reader {

using JSON = nlohmann::ordered_json;

// The records as JSON: keys are the field names, computed properties included; what a record does
// not have is null; an enumeration is its raw value, or its case name where it has none; a tagged
// variant is an object with its alternative under "case" beside its payload; dates are in UTC, to
// the second, and null outside the years 0 to 9999.
JSON toJSON(const AppMetadataProtocol& metadata);
JSON toJSON(const StreamProtocol& stream);
JSON toJSON(const ArticleProtocol& article);
JSON toJSON(const Image& image);
JSON toJSON(const OfflineSet& set);
JSON toJSON(Date date);

// Adds "source", "age" (seconds) and "fetchedAt".
void addProvenance(JSON& json, const Provenance& provenance);

// Indented, unless `oneLine`; text that is no UTF-8 is made so.
std::string dump(const JSON& json, bool oneLine = false);

}  // namespace paperloom::reader
