#pragma once

#include <string>
#include <string_view>
#include <tl/expected.hpp>
#include <utility>

namespace paperloom {

// The library's one error: a case and a text for people. It has no equality and no code; callers
// tell failures apart by the case.
class PaperloomError {
 public:
  enum class Case {
    parsingFailed,       // a document that does not hold what it must
    networkError,        // no usable answer
    configurationError,  // the host has not set what the request needs
  };

  // An error of the case that the name says; `details` is for people.
  static PaperloomError parsingFailed(std::string details) {
    return {Case::parsingFailed, std::move(details)};
  }
  static PaperloomError networkError(std::string details) {
    return {Case::networkError, std::move(details)};
  }
  static PaperloomError configurationError(std::string details) {
    return {Case::configurationError, std::move(details)};
  }

  Case which() const { return case_; }
  const std::string& details() const { return details_; }

 private:
  PaperloomError(Case which, std::string details) : case_(which), details_(std::move(details)) {}

  Case case_;
  std::string details_;
};

// The case's name: "parsingFailed", "networkError" or "configurationError".
constexpr std::string_view caseName(PaperloomError::Case which) {
  switch (which) {
    case PaperloomError::Case::parsingFailed:
      return "parsingFailed";
    case PaperloomError::Case::networkError:
      return "networkError";
    case PaperloomError::Case::configurationError:
      return "configurationError";
  }
  return "";
}

// The same for `return parsingFailed(...)` out of a function with a Result.
inline tl::unexpected<PaperloomError> parsingFailed(std::string details) {
  return tl::make_unexpected(PaperloomError::parsingFailed(std::move(details)));
}

template <class T>
using Result = tl::expected<T, PaperloomError>;

}  // namespace paperloom
