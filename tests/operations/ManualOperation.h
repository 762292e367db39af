#pragma once

#include <atomic>
#include <functional>
#include <utility>

#include "paperloom/operations/AsynchronousOperation.h"
#include "paperloom/platform/OperationQueue.h"

namespace paperloom::test {

// An operation whose answer comes when the test says so, or from another queue's thread by itself.
class ManualOperation final : public AsynchronousOperation {
 public:
  ManualOperation() = default;
  ManualOperation(std::function<void()> work, bool answersItself)
      : work_(std::move(work)), answersItself_(answersItself) {}

  void start() override {
    ++starts_;
    AsynchronousOperation::start();
  }

  void main() override {
    if (work_) work_();
    ++mains_;
    mains_.notify_all();
    if (answersItself_) answers().addOperation(std::make_shared<Answer>(shared_from_this()));
  }

  void finish() { setState(State::finished); }
  void announceReadyAgain() { setState(State::ready); }
  void waitUntilStarted() const { mains_.wait(0); }
  int starts() const { return starts_; }
  int mains() const { return mains_; }

 private:
  struct Answer final : Operation {
    explicit Answer(std::shared_ptr<Operation> operation) : answered(std::move(operation)) {}
    void main() override { static_cast<ManualOperation&>(*answered).finish(); }
    std::shared_ptr<Operation> answered;
  };
  static OperationQueue& answers() {
    static OperationQueue queue;
    return queue;
  }

  std::function<void()> work_;
  bool answersItself_ = false;
  std::atomic<int> starts_{0};
  std::atomic<int> mains_{0};
};

}  // namespace paperloom::test
