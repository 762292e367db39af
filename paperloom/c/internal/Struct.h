#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>

#include "paperloom/c/paperloom.h"

namespace paperloom::c {

// Where each struct ended in the version that brought it.
template <class Struct>
inline constexpr std::size_t firstSize = 0;
template <>
inline constexpr std::size_t firstSize<paperloom_tokens> = offsetof(paperloom_tokens, id_token) +
                                                           sizeof(paperloom_text);
template <>
inline constexpr std::size_t firstSize<paperloom_new_account> = offsetof(paperloom_new_account,
                                                                         marketing_opt_in) +
                                                                sizeof(bool);
template <>
inline constexpr std::size_t firstSize<paperloom_configuration> = offsetof(paperloom_configuration,
                                                                           keep_user_data) +
                                                                  sizeof(void*);
template <>
inline constexpr std::size_t firstSize<paperloom_warming_plan> = offsetof(paperloom_warming_plan,
                                                                          maximum_time) +
                                                                 sizeof(std::int64_t);
template <>
inline constexpr std::size_t firstSize<paperloom_warming_sum> = offsetof(paperloom_warming_sum,
                                                                         reason) +
                                                                sizeof(paperloom_text);

// A struct of the host's as this library knows it. Of a larger one, made for a later library, the
// rest is ignored; what a smaller one lacks is zero. Nothing without a struct, and for one that
// is smaller than it ever was.
template <class Struct>
std::optional<Struct> readStruct(const Struct* given) {
  if (given == nullptr || given->size < firstSize<Struct>) return std::nullopt;
  Struct known{};
  std::memcpy(&known, given, std::min(given->size, sizeof known));
  return known;
}

// Fills the host's struct, as far as its size says that it goes.
template <class Struct>
bool writeStruct(Struct known, Struct* given) {
  if (given == nullptr || given->size < firstSize<Struct>) return false;
  known.size = given->size;
  std::memcpy(given, &known, std::min(given->size, sizeof known));
  return true;
}

}  // namespace paperloom::c
