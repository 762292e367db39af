#pragma once

#include <optional>
#include <variant>

#include "paperloom/platform/Data.h"

namespace paperloom {

// The outcomes of warming one URL.
namespace cachewarmer {
struct Success {  // fetched with a status of 200 to 399
  std::optional<Data> data;
};
struct SuccessFromCache {  // cached already and no refresh asked for
  std::optional<Data> data;
};
struct FailedStatusCode {
  int statusCode = 0;
};
struct NetworkError {};  // no answer at all
}  // namespace cachewarmer

using CacheWarmerRequestResult =
    std::variant<cachewarmer::Success, cachewarmer::SuccessFromCache, cachewarmer::FailedStatusCode,
                 cachewarmer::NetworkError>;

}  // namespace paperloom
