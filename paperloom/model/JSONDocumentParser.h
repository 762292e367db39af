#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include "paperloom/model/JSONParsing.h"
#include "paperloom/model/ParserProtocol.h"

namespace paperloom {

// A text as an argument of a template.
template <std::size_t size>
struct TemplateText {
  // NOLINTNEXTLINE(google-explicit-constructor): written as a literal
  constexpr TemplateText(const char (&literal)[size]) {
    for (std::size_t i = 0; i < size; ++i) text[i] = literal[i];
  }
  constexpr std::string_view view() const { return {text, size - 1}; }

  char text[size] = {};
};

// The one way from the bytes of a JSON document to a record: decode, demand an object at the top,
// build the record. The decoder's error and the record's pass through unchanged; a document whose
// top is anything but an object fails with `topLevelFailure`.
template <JSONParsing Record, TemplateText topLevelFailure, class T = Parsed<Record>>
class JSONDocumentParser final : public ParserProtocol<T> {
 public:
  tl::expected<T, ParserError> parse(const Data& data) const override {
    return build(data, nullptr);
  }

  // The same, while `listener` hears what is made of the document; null is nobody.
  [[nodiscard]] tl::expected<T, ParserError> parse(const Data& data, JSONListener* listener) const {
    auto result = build(data, listener);
    if (listener != nullptr) listener->ended(result.has_value());
    return result;
  }

 private:
  static tl::expected<T, ParserError> build(const Data& data, JSONListener* listener) {
    auto document = JSONDocument::parse(data, listener);
    if (listener != nullptr) listener->decoded(document ? &*document : nullptr, data.view());
    if (!document) return tl::make_unexpected(ParserError(std::move(document.error())));
    const auto top = document->object();
    if (!top) {
      return tl::make_unexpected(
          ParserError(PaperloomError::parsingFailed(std::string(topLevelFailure.view()))));
    }
    auto record = Record::parse(*top);
    if (!record) return tl::make_unexpected(ParserError(std::move(record.error())));
    if constexpr (std::is_same_v<T, Parsed<Record>>) {
      return std::move(*record);
    } else {
      return std::make_shared<const Record>(std::move(*record));
    }
  }
};

}  // namespace paperloom
