#pragma once

#include <cstdint>
#include <cstdlib>
#include <string>

#include "paperloom/model/ParserProtocol.h"

namespace paperloom::fuzz {

// Parses the input as it stands; a failure must say why. Returns the record, or null.
template <class T>
T parsed(const ParserProtocol<T>& parser, const std::uint8_t* bytes, std::size_t size) {
  auto result = parser.parse(Data(std::string(reinterpret_cast<const char*>(bytes), size)));
  if (result) return std::move(*result);
  if (asPaperloomError(std::move(result.error())).details().empty()) std::abort();
  return nullptr;
}

inline void require(bool holds) {
  if (!holds) std::abort();
}

}  // namespace paperloom::fuzz
