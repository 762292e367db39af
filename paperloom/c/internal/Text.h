#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "paperloom/c/paperloom.h"
#include "paperloom/platform/Data.h"
#include "paperloom/platform/URL.h"

namespace paperloom::c {

// The texts of records as C reads them, borrowed. The bytes lie in a std::string, so a NUL follows.
inline paperloom_text text(std::string_view view) {
  return {view.data() == nullptr ? "" : view.data(), view.size()};
}
inline paperloom_text text(const std::string& string) { return text(std::string_view(string)); }
inline paperloom_text text(const Data& data) { return text(data.view()); }
inline paperloom_text text(const URL& url) { return text(url.absoluteString()); }
template <class Value>
paperloom_text text(const std::optional<Value>& value) {
  return value ? text(*value) : paperloom_text{nullptr, 0};
}

// What C gives: no text at all is not the empty one.
inline std::optional<std::string> string(paperloom_text text) {
  if (text.data == nullptr) return std::nullopt;
  return std::string(text.data, text.length);
}

// An address that a request can be sent to.
inline std::optional<URL> webURL(paperloom_text text) {
  auto url = text.data != nullptr ? URL::parse({text.data, text.length}) : std::nullopt;
  const bool isOfTheWeb =
      url && !url->host().empty() && (url->scheme() == "http" || url->scheme() == "https");
  return isOfTheWeb ? std::move(url) : std::nullopt;
}

}  // namespace paperloom::c
