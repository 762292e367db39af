#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <type_traits>

#include "paperloom/model/JSONParsing.h"
#include "paperloom/model/RawValue.h"
#include "paperloom/platform/Date.h"
#include "paperloom/platform/JSON.h"
#include "paperloom/platform/JSONListener.h"
#include "paperloom/platform/URL.h"

namespace paperloom {

// The names of the rules: those that records hold values to, and those of ParseFindings.
namespace rule {
inline constexpr std::string_view unknownValue = "unknown-value";
inline constexpr std::string_view invalidURL = "invalid-url";
inline constexpr std::string_view invalidDate = "invalid-date";
inline constexpr std::string_view noRenditions = "no-renditions";
inline constexpr std::string_view noMetadata = "no-metadata";
inline constexpr std::string_view invalidJSON = "invalid-json";
inline constexpr std::string_view missingKey = "missing-key";
inline constexpr std::string_view wrongType = "wrong-type";
inline constexpr std::string_view unreadKey = "unread-key";
inline constexpr std::string_view duplicateKey = "duplicate-key";
inline constexpr std::string_view emptyText = "empty-text";
inline constexpr std::string_view insecureLink = "insecure-link";
inline constexpr std::string_view futureDate = "future-date";
inline constexpr std::string_view outOfProportion = "out-of-proportion";
inline constexpr std::string_view duplicateIdentifier = "duplicate-identifier";
inline constexpr std::string_view moreFindings = "more-findings";
}  // namespace rule

// Each tells the document's listener, if there is one.

inline void refuse(const JSONObject& json, std::string_view key, std::string_view rule,
                   std::string_view accepted = {}) {
  if (JSONListener* const listener = json.listener())
    listener->refused(json.place(), key, rule, accepted);
}

// Of `json` no record was made; `effect` is what a reader sees of that.
inline void leaveOut(const JSONObject& json, std::string_view effect) {
  JSONListener* const listener = json.listener();
  if (listener == nullptr) return;
  listener->failed(json.place());
  listener->leftOut(json.place(), effect);
}

template <class Enumeration>
[[gnu::cold, gnu::noinline]] void refuseCase(const JSONObject& json, std::string_view key) {
  std::string accepted;
  for (const auto& [value, raw] : rawValues<Enumeration>) {
    if (!accepted.empty()) accepted += ", ";
    if constexpr (std::is_integral_v<RawValue<Enumeration>>) {
      accepted += std::to_string(raw);
    } else {
      accepted += raw;
    }
  }
  refuse(json, key, rule::unknownValue, accepted);
}

// The case whose raw value is `raw`, which stands under `key`; nothing when there is none.
template <class Enumeration>
std::optional<Enumeration> caseOf(const JSONObject& json, std::string_view key,
                                  RawValue<Enumeration> raw) {
  const auto found = fromRawValue<Enumeration>(raw);
  if (!found && json.listener() != nullptr) refuseCase<Enumeration>(json, key);
  return found;
}

// The same for the text that stands under `key`, if one does.
template <class Enumeration>
std::optional<Enumeration> caseUnder(const JSONObject& json, std::string_view key) {
  const auto text = json.stringView(key);
  return text ? caseOf<Enumeration>(json, key, *text) : std::nullopt;
}

// The URL and the time that stand under `key` as texts; nothing for any other text.
std::optional<URL> urlUnder(const JSONObject& json, std::string_view key);
std::optional<Date> dateUnder(const JSONObject& json, std::string_view key);

}  // namespace paperloom
