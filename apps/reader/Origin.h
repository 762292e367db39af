#pragma once

#include <chrono>
#include <optional>
#include <string>

#include "paperloom/platform/Date.h"
#include "paperloom/platform/URLSession.h"

namespace paperloom::reader {

// Where an answer came from.
struct Origin {
  URLSessionTaskMetrics::Source source = URLSessionTaskMetrics::Source::network;
  std::optional<std::chrono::seconds> age;
  std::optional<Date> fetchedAt;
  // The server gave no usable answer and the last good copy took its place.
  bool fallback = false;
  // It came with the library.
  bool shipped = false;

  // "network", "cache", "revalidated", "stale" or "library"
  std::string word() const;
  // For people: "from the cache, fetched 3 minutes ago"
  std::string sentence() const;
};

}  // namespace paperloom::reader
