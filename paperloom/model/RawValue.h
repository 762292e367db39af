#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>
#include <utility>

namespace paperloom {

// The raw values of an enumeration, which every enumeration with raw values specialises.
template <class Enumeration>
inline constexpr std::array<std::pair<Enumeration, std::string_view>, 0> rawValues{};

template <class Enumeration>
using RawValue = typename decltype(rawValues<Enumeration>)::value_type::second_type;

// What a document says for the case; an empty value for one that is none.
template <class Enumeration>
requires(!rawValues<Enumeration>.empty()) constexpr RawValue<Enumeration> rawValue(
    Enumeration value) {
  for (const auto& [candidate, raw] : rawValues<Enumeration>) {
    if (candidate == value) return raw;
  }
  return {};
}

// The case whose raw value is exactly `raw`; nothing when there is none.
template <class Enumeration>
requires(!rawValues<Enumeration>.empty()) constexpr std::optional<Enumeration> fromRawValue(
    RawValue<Enumeration> raw) {
  for (const auto& [candidate, text] : rawValues<Enumeration>) {
    if (text == raw) return candidate;
  }
  return std::nullopt;
}

}  // namespace paperloom
