#pragma once

#include <cstddef>
#include <string_view>

#include "paperloom/platform/Export.h"

namespace paperloom {

class JSONDocument;

// Hears what a parser makes of one JSON document, as it makes it: what it asks of the objects, and
// what it says of those that it does not take as they are. A parser with a listener takes and
// refuses exactly what it does without one. What is handed over is valid during the call only, and
// all calls come from the thread that parses. Objects go by their JSONObject::place().
class PAPERLOOM_EXPORT JSONListener {
 public:
  enum class Kind { text, boolean, integer, object, objects, texts, any };

  virtual ~JSONListener() = default;

  // The document has been decoded from `text`, or is none: null.
  virtual void decoded(const JSONDocument* document, std::string_view text) = 0;
  // The object of that place was asked for a value under `key`.
  virtual void asked(std::size_t object, std::string_view key) = 0;
  // What it was asked for last is there, and not of the kind that was asked for.
  virtual void mistyped(std::size_t object, std::string_view key, Kind kind) = 0;
  // The value under `key` is of the right kind, and breaks the rule of that name. `accepted` are
  // the values that there are, where they are few: "small, medium".
  virtual void refused(std::size_t object, std::string_view key, std::string_view rule,
                       std::string_view accepted) = 0;
  // Of this object no record can be made, for what was asked of it in vain or refused so far.
  virtual void failed(std::size_t object) = 0;
  // The parser goes on without this object; `effect` is what a reader sees: "the card is left out".
  virtual void leftOut(std::size_t object, std::string_view effect) = 0;
  // The last call: whether there is a record of the whole document.
  virtual void ended(bool parsed) = 0;
};

}  // namespace paperloom
