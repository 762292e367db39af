#pragma once

#include <gtest/gtest.h>

#include <condition_variable>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "paperloom/identity/Entitlement.h"
#include "paperloom/network/RequestResult.h"
#include "paperloom/testing/Waiting.h"

namespace paperloom::test {

using Lines = std::vector<std::string>;

template <class Item>
std::string itemText(const Item&) {
  return "success";
}
inline std::string itemText(Entitlement entitlement) {
  return entitlement == Entitlement::premium ? "premium" : "not premium";
}

// A result of the identity side in a few words.
template <class Item>
std::string textOf(const RequestResult<Item>& result) {
  if (const auto* success = std::get_if<request::Success<Item>>(&result)) {
    return itemText(success->item);
  }
  if (const auto* failed = std::get_if<request::FailedStatusCode>(&result)) {
    return "status " + std::to_string(failed->statusCode);
  }
  if (const auto* error = std::get_if<request::ParsingError>(&result)) return error->description;
  return std::holds_alternative<request::NetworkError>(result) ? "network" : "internal";
}

// What a completion was called with, one line a call.
class Answers {
 public:
  template <class Result>
  void operator()(const Result& result) {
    add(textOf(result));
  }
  void add(std::string line) {
    const std::lock_guard lock(mutex_);
    lines_.push_back(std::move(line));
    came_.notify_all();
  }
  // Waits for the first; one that follows in the same callback is taken with it once the session
  // is gone.
  void waitForFirst() {
    std::unique_lock lock(mutex_);
    EXPECT_TRUE(came_.wait_for(lock, patience, [this] { return !lines_.empty(); })) << "no answer";
  }
  Lines take() {
    const std::lock_guard lock(mutex_);
    return std::exchange(lines_, {});
  }

 private:
  std::mutex mutex_;
  std::condition_variable came_;
  Lines lines_;
};

}  // namespace paperloom::test
