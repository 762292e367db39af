#pragma once

#include <string>
#include <variant>

#include "paperloom/model/PaperloomError.h"
#include "paperloom/platform/Data.h"

namespace paperloom {

// The outcomes of a request on the identity side.
namespace request {
template <class Item>
struct Success {
  Item item;
};
struct FailedStatusCode {
  int statusCode = 0;
};
struct ParsingError {
  std::string description;
};
struct NetworkError {};
struct InternalError {};
}  // namespace request

template <class Item>
using RequestResult =
    std::variant<request::Success<Item>, request::FailedStatusCode, request::ParsingError,
                 request::NetworkError, request::InternalError>;

// The item of a request whose answer carries none.
struct Nothing {};

// The outcomes of a JSON POST on the content side. Any status counts as success: the caller judges.
struct PostSuccess {
  int responseCode = 0;
  Data responseData;
};
using PostRequestResult = std::variant<PostSuccess, PaperloomError>;

}  // namespace paperloom
