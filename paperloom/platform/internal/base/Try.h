#pragma once

#include <tl/expected.hpp>
#include <type_traits>
#include <utility>

namespace paperloom::internal {

template <class T, class E>
T valueOf(tl::expected<T, E>&& result) {
  if constexpr (!std::is_void_v<T>) return *std::move(result);
}

}  // namespace paperloom::internal

// The value of an expected, or the end of the function with its error. As the whole initialiser of
// a variable or as a whole statement, nowhere else: a return in the middle of an expression leaves
// the temporaries of that expression undestroyed with g++ 12.
#define TRY(...)                                                           \
  __extension__({                                                          \
    auto tryResult_ = (__VA_ARGS__);                                       \
    if (!tryResult_) return tl::unexpected(std::move(tryResult_).error()); \
    ::paperloom::internal::valueOf(std::move(tryResult_));                 \
  })
