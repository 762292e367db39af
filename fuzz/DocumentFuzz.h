#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <string>
#include <utility>

#include "apps/reader/RecordJSON.h"
#include "paperloom/model/ParseFindings.h"
#include "paperloom/model/ParserProtocol.h"
#include "tests/support/UnreadKey.h"

namespace paperloom::fuzz {

inline void require(bool holds) {
  if (!holds) std::abort();
}

// The record as the reader shows it, or nothing when the text gives none.
template <class T>
std::string shown(const ParserProtocol<T>& parser, std::string text) {
  const auto result = parser.parse(Data(std::move(text)));
  return result ? reader::dump(reader::toJSON(**result)) : std::string();
}

// Parses the input as it stands; a failure must say why. A key that nobody reads, put into one of
// the document's objects, must change no record, whatever its value. A listener must change
// nothing, and have heard of something where there is no record. Returns the
// record, or null.
template <class Parser>
typename Parser::Item parsed(const Parser& parser, const std::uint8_t* bytes, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(bytes), size);
  // An insertion near the depth limit would cross it.
  constexpr auto certainlyShallow = 1000;
  const auto openings =
      std::count(text.begin(), text.end(), '{') + std::count(text.begin(), text.end(), '[');
  if (openings < certainlyShallow && JSONDocument::parse(text)) {
    const auto& value = test::anyValues[size % std::size(test::anyValues)];
    const auto texts = test::withMember(text, "\"~\":" + std::string(value));
    if (!texts.empty()) {
      const std::string& changed = texts[std::hash<std::string>()(text) % texts.size()];
      require(shown(parser, changed) == shown(parser, text));
    }
  }
  const Data data(text);
  auto result = parser.parse(data);
  ParseFindings findings;
  require(parser.parse(data, &findings).has_value() == result.has_value());
  if (result) return std::move(*result);
  require(!asPaperloomError(std::move(result.error())).details().empty());
  require(!findings.list().empty());
  return nullptr;
}

}  // namespace paperloom::fuzz
