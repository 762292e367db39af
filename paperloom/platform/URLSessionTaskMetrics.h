#pragma once

#include <chrono>
#include <cstdint>
#include <optional>

#include "paperloom/platform/Date.h"
#include "paperloom/platform/URLResponse.h"

namespace paperloom {

// What happened to a finished task.
struct URLSessionTaskMetrics {
  enum class Source {
    network,      // the answer came whole from the server
    cache,        // a fresh stored copy, no traffic
    revalidated,  // a stored copy that the server confirmed
    stale,        // a stored copy past its freshness, served as the directives or the policy allow
  };
  Source source = Source::network;
  // The server failed, and the stored copy took the place of its answer.
  bool serverFailed = false;
  // How it failed: with an answer of that status, or without a whole answer.
  std::optional<int> failedStatusCode;
  std::optional<URLError> failure;
  std::optional<std::chrono::seconds> age;  // of a stored copy when it was served
  std::optional<Date> fetchedAt;            // when the answer, or its last validation, was received
  std::int64_t countOfBytesReceived = 0;    // of bodies, from the network, before decoding
};

}  // namespace paperloom
