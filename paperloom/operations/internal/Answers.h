#pragma once

#include <memory>
#include <variant>

#include "paperloom/network/RequestResult.h"

namespace paperloom {

// The item of a successful answer; null for any failure.
template <class Item>
const Item* itemOf(const RequestResult<Item>& answer) {
  const auto* success = std::get_if<request::Success<Item>>(&answer);
  return success != nullptr ? &success->item : nullptr;
}

template <class Item>
bool failedWithStatus(const RequestResult<Item>& answer, int statusCode) {
  const auto* failed = std::get_if<request::FailedStatusCode>(&answer);
  return failed != nullptr && failed->statusCode == statusCode;
}

// The shared coordinator in the hands of an operation; it lives for ever, so nothing is counted.
template <class Coordinator>
std::shared_ptr<Coordinator> sharedCoordinator() {
  return {std::shared_ptr<void>(), &Coordinator::shared()};
}

}  // namespace paperloom
