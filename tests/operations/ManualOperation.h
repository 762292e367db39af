#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <utility>

#include "paperloom/operations/AsynchronousOperation.h"
#include "paperloom/testing/Waiting.h"

namespace paperloom::test {

// An operation whose answer comes when the test says so.
class ManualOperation final : public AsynchronousOperation {
 public:
  ManualOperation() = default;
  explicit ManualOperation(std::function<void()> work) : work_(std::move(work)) {}

  void start() override {
    ++starts_;
    AsynchronousOperation::start();
  }

  void main() override {
    if (work_) work_();
    ++mains_;
  }

  void finish() { setState(State::finished); }
  void announceReadyAgain() { setState(State::ready); }
  void waitUntilStarted() const {
    EXPECT_TRUE(pumpUntil([this] { return mains_ > 0; })) << "it never started";
  }
  int starts() const { return starts_; }
  int mains() const { return mains_; }

 private:
  std::function<void()> work_;
  std::atomic<int> starts_{0};
  std::atomic<int> mains_{0};
};

}  // namespace paperloom::test
