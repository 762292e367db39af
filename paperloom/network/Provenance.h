#pragma once

#include <chrono>
#include <optional>

#include "paperloom/platform/Date.h"

namespace paperloom {

// Where a document came from: what is said here is said of the bytes that were parsed.
struct Provenance {
  enum class Source {
    network,      // whole from the server
    cache,        // a stored copy
    revalidated,  // a stored copy that the server has just confirmed
    stale,        // a stored copy past its freshness, as the directives allow
    library,      // shipped with the library
  };
  Source source = Source::network;
  // The server gave no usable answer, and the stored copy took its place.
  bool fromCache = false;
  std::optional<std::chrono::seconds> age{};  // of a stored copy
  std::optional<Date> fetchedAt{};            // when the copy, or its last validation, was received
};

}  // namespace paperloom
