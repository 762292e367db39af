#pragma once

#include <chrono>
#include <optional>

#include "paperloom/platform/Date.h"
#include "paperloom/platform/URLResponse.h"

namespace paperloom {

// Where a document came from, or how a request for one failed. What is said of source, age and time
// is said of the bytes that were parsed.
struct Provenance {
  enum class Source {
    network,      // whole from the server
    cache,        // a stored copy
    revalidated,  // a stored copy that the server has just confirmed
    stale,        // a stored copy past its freshness, as the directives or the request allow
    library,      // shipped with the library
  };
  Source source = Source::network;
  // The server gave no usable answer, and the stored copy took its place.
  bool fromCache = false;
  // The answer of the server follows as another one: see Refresh::afterTheCopy().
  bool isFollowed = false;
  std::optional<std::chrono::seconds> age{};  // of a stored copy
  std::optional<Date> fetchedAt{};            // when the copy, or its last validation, was received
  // What came of asking the server, also where a copy took the place of its answer: the answer's
  // status, and why no whole answer came. So 404, 410 and 500 are told apart by the one;
  // a cancellation, a time limit and an outage by the code of the other. Of an answer for which
  // the server was not asked, the stored status; neither for a document of the library.
  std::optional<int> statusCode{};
  std::optional<URLError> error{};
};

}  // namespace paperloom
