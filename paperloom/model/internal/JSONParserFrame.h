#pragma once

#include <string>
#include <string_view>
#include <utility>

#include "paperloom/model/JSONParsing.h"
#include "paperloom/model/ParserProtocol.h"

namespace paperloom {

// The three steps of every parser of a JSON document: decode, demand an object at the top, build
// the record. The decoder's error and the record's pass through unchanged; `topLevelFailure` is
// the text for a document whose top is anything but an object.
template <JSONParsing Record>
tl::expected<Parsed<Record>, ParserError> parseJSONDocument(const Data& data,
                                                            std::string_view topLevelFailure) {
  auto document = JSONDocument::parse(data);
  if (!document) return tl::make_unexpected(ParserError(std::move(document.error())));
  const auto top = document->object();
  if (!top) {
    return tl::make_unexpected(
        ParserError(PaperloomError::parsingFailed(std::string(topLevelFailure))));
  }
  auto record = Record::parse(*top);
  if (!record) return tl::make_unexpected(ParserError(std::move(record.error())));
  return std::move(*record);
}

}  // namespace paperloom
