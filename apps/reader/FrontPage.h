#pragma once

#include <vector>

#include "apps/reader/Output.h"
#include "paperloom/model/AppMetadata.h"
#include "paperloom/model/Stream.h"
#include "paperloom/network/ProvenanceWords.h"

namespace paperloom::reader {

// Prints the front page for people, its cards numbered from 1.
void printFrontPage(Output& output, const StreamProtocol& stream);

// The cards in the order in which they are printed, sponsored ones last.
ArticleHeaderList cardsOf(const StreamProtocol& stream);

// Prints the configuration for people.
void printConfiguration(Output& output, const AppMetadataProtocol& metadata);

// "By Ann Lee (Editor) and Bo Chen"; empty without authors.
std::string byline(const std::vector<Author>& authors, bool withTitles);

}  // namespace paperloom::reader
