#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "paperloom/model/ParserProtocol.h"

namespace paperloom::reader {

// Thrown to end a command: the one line for standard error, without its "error: ", and the exit
// status. An empty text ends silently.
struct Failure {
  explicit Failure(std::string sentence, int exitStatus = 1, std::string_view kind = "failed")
      : text(std::move(sentence)), status(exitStatus), name(kind), details(text) {}

  // "<alternative>: <details>"
  explicit Failure(const PaperloomError& error)
      : text(std::string(caseName(error.which())) + ": " + error.details()),
        name(caseName(error.which())),
        details(error.details()) {}

  // As above, or "decoder: <its text>".
  explicit Failure(const ParserError& error)
      : Failure(std::holds_alternative<PaperloomError>(error)
                    ? Failure(std::get<PaperloomError>(error))
                    : decoder(std::get<JSONError>(error).localizedDescription)) {}

  std::string text;
  int status = 1;
  // For programs: the error's case, "decoder", "usage", or "failed" for all else.
  std::string name;
  std::string details;
  std::optional<int> httpStatus{};  // of the service's answer, where there was one
  bool isPrinted = false;           // standard output holds it as JSON already

 private:
  static Failure decoder(const std::string& words) {
    Failure failure("decoder: " + words, 1, "decoder");
    failure.details = words;
    return failure;
  }
};

inline constexpr int usageStatus = 2;

inline Failure usageFailure(std::string sentence) {
  return Failure(std::move(sentence), usageStatus, "usage");
}

}  // namespace paperloom::reader
