#pragma once

#include <string>
#include <utility>

#include "paperloom/model/ParserProtocol.h"

namespace paperloom::reader {

// Thrown to end a command: the one line for standard error, without its "error: ", and the exit
// status. An empty text ends silently.
struct Failure {
  explicit Failure(std::string sentence, int exitStatus = 1)
      : text(std::move(sentence)), status(exitStatus) {}

  // "<alternative>: <details>"
  explicit Failure(const PaperloomError& error)
      : text(std::string(caseName(error.which())) + ": " + error.details()) {}

  // As above, or "decoder: <its text>".
  explicit Failure(const ParserError& error)
      : Failure(std::holds_alternative<PaperloomError>(error)
                    ? Failure(std::get<PaperloomError>(error))
                    : Failure("decoder: " + std::get<JSONError>(error).localizedDescription)) {}

  std::string text;
  int status = 1;
};

inline constexpr int usageStatus = 2;

}  // namespace paperloom::reader
