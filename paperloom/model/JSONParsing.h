#pragma once

#include <concepts>
#include <string>
#include <utility>

#include "paperloom/model/PaperloomError.h"
#include "paperloom/platform/JSON.h"
#include "paperloom/platform/JSONListener.h"

namespace paperloom {

// A record that builds itself from a JSON object by a static `parse`, whose failures are all
// parsingFailed. A required value that is missing or of another type ends the parse with the
// record's own text; an optional one counts as absent.
template <class Record>
concept JSONParsing = requires(const JSONObject& json) {
  { Record::parse(json).error() } -> std::convertible_to<PaperloomError>;
};

// What the record's parse gives: the record itself or its interface.
template <JSONParsing Record>
using Parsed = typename decltype(Record::parse(std::declval<const JSONObject&>()))::value_type;

// The failure of a record's parse, of which the document's listener hears: what was asked of `json`
// in vain or refused up to here is at fault.
inline tl::unexpected<PaperloomError> parsingFailed(const JSONObject& json, std::string details) {
  if (JSONListener* const listener = json.listener()) listener->failed(json.place());
  return parsingFailed(std::move(details));
}

}  // namespace paperloom
