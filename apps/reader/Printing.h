#pragma once

#include <optional>
#include <string>

#include "apps/reader/Host.h"
#include "apps/reader/RecordJSON.h"

namespace paperloom::reader {

// The record as one JSON object, with where it came from.
void printJSON(Host& host, JSON json, const Provenance& provenance);

// Where an answer came from, on standard error, after what has been printed of it.
void printProvenance(Host& host, const Provenance& provenance);

// The front page, whose numbers numberedCard() then knows, in this process and in later ones.
void printNumberedFrontPage(Host& host, const StreamProtocol& stream);

// The address of a card of the front page printed last.
std::optional<std::string> numberedCard(const Host& host, std::size_t number);

}  // namespace paperloom::reader
