#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <tl/expected.hpp>

namespace paperloom::sample {

// How the sample service is to misbehave. A plan with every field left alone misbehaves not at all.
//
// Paths are prefixes of the request's path ("/articles" covers every article); the first entry that
// fits a request counts. Silence goes before a status, a status before a failure by rate; a cut
// applies to whatever is answered.
struct FaultPlan {
  struct Status {
    std::string path;
    int status = 503;
  };
  struct Cut {
    std::string path;
    std::size_t bytes = 0;
  };

  // Waits this long before every answer.
  std::chrono::milliseconds latency{0};

  // Answers with this status and a small JSON body in place of the document.
  std::vector<Status> statuses;

  // Share of requests, 0 to 1, that are answered 503. Which ones is decided by `seed` and the
  // request's number since the plan was set, so that a run can be repeated.
  double failureRate = 0;
  std::uint64_t seed = 1;

  // Sends the full Content-Length but at most so many bytes of the body, then closes the
  // connection.
  std::vector<Cut> cuts;

  // Takes the request and never answers.
  std::vector<std::string> silent;

  // After this many requests the service stops listening and closes its connections for good.
  std::optional<std::uint64_t> goneAfter;

  // Reads the text form: settings separated by commas or white space, each of them one of
  //   latency=MILLISECONDS   status=PATH:CODE   failures=RATE or `RATE@SEED`
  //   cut=PATH:BYTES         silent=PATH        gone=REQUESTS
  // `status`, `cut` and `silent` may be given several times. An empty text is a plan without
  // faults. The error is a sentence for the person who wrote the text.
  static tl::expected<FaultPlan, std::string> parse(std::string_view text);

  // Whether request number `index`, counted from 0, falls to `failureRate`.
  bool fails(std::uint64_t index) const;
};

}  // namespace paperloom::sample
