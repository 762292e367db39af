#pragma once

#include <memory>
#include <string>
#include <tl/expected.hpp>
#include <utility>
#include <variant>

#include "paperloom/model/PaperloomError.h"
#include "paperloom/platform/Data.h"
#include "paperloom/platform/JSON.h"

namespace paperloom {

// Why bytes did not become a record: the library's own error, or the JSON decoder's, unchanged.
using ParserError = std::variant<PaperloomError, JSONError>;

// The decoder's error as the library reports it to a host: parsingFailed with the decoder's words.
inline PaperloomError asPaperloomError(ParserError error) {
  if (auto* own = std::get_if<PaperloomError>(&error)) return std::move(*own);
  return PaperloomError::parsingFailed(std::move(std::get<JSONError>(error).localizedDescription));
}

// Turns the bytes of a document into a `T`. Parsers hold no state and may be used on any thread.
template <class T>
class ParserProtocol {
 public:
  using Item = T;

  virtual ~ParserProtocol() = default;
  // `data` is one whole document. Never throws.
  [[nodiscard]] virtual tl::expected<T, ParserError> parse(const Data& data) const = 0;
};

// As parser->parse(data); without a parser nothing is accepted.
template <class T>
[[nodiscard]] tl::expected<T, ParserError> parseWith(
    const std::shared_ptr<const ParserProtocol<T>>& parser, const Data& data) {
  if (parser) return parser->parse(data);
  return tl::make_unexpected(ParserError(PaperloomError::parsingFailed("no parser was given")));
}

}  // namespace paperloom
