#include "paperloom/operations/AsynchronousOperation.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "tests/operations/ManualOperation.h"

namespace paperloom::test {
namespace {

// Writes down every announcement with what the operation says of itself at that moment.
class Recorder final : public OperationObserver {
 public:
  void willChangeValue(Operation& operation, std::string_view key) override {
    write("will ", operation, key);
  }
  void didChangeValue(Operation& operation, std::string_view key) override {
    write("did ", operation, key);
  }

  std::vector<std::string> take() { return std::exchange(lines_, {}); }
  std::string last() const { return lines_.empty() ? "" : lines_.back(); }

 private:
  void write(std::string_view phase, const Operation& operation, std::string_view key) {
    std::string line(phase);
    line.append(key).append(operation.isReady() ? " r" : " -");
    line.append(operation.isExecuting() ? "e" : "-").append(operation.isFinished() ? "f" : "-");
    lines_.push_back(line);
  }

  std::vector<std::string> lines_;
};

using Lines = std::vector<std::string>;

TEST(AsynchronousOperationTest, staysReadyBetweenItsStartAndItsEnd) {
  const auto operation = std::make_shared<ManualOperation>();
  const auto recorder = std::make_shared<Recorder>();
  operation->addObserver(recorder);
  operation->start();
  EXPECT_EQ(recorder->take(),
            (Lines{"will isReady r--", "will isReady r--", "did isReady r--", "did isReady r--"}));
  EXPECT_EQ(operation->mains(), 1);
  operation->finish();
  EXPECT_EQ(recorder->take(), (Lines{"will isFinished r--", "will isReady r--", "did isReady --f",
                                     "did isFinished --f"}));
  operation->finish();
  EXPECT_EQ(recorder->take(), (Lines{"will isFinished --f", "will isFinished --f",
                                     "did isFinished --f", "did isFinished --f"}));
  operation->start();
  EXPECT_EQ(recorder->take(), Lines{});
  EXPECT_TRUE(operation->isFinished());
  operation->removeObserver(recorder);
  operation->finish();
  EXPECT_EQ(recorder->take(), Lines{});
}

TEST(AsynchronousOperationTest, finishesInStartWhenItIsCancelled) {
  const auto operation = std::make_shared<ManualOperation>();
  const auto recorder = std::make_shared<Recorder>();
  operation->addObserver(recorder);
  operation->cancel();
  operation->start();
  EXPECT_EQ(recorder->take(), (Lines{"will isFinished r--", "will isReady r--", "did isReady --f",
                                     "did isFinished --f"}));
  EXPECT_EQ(operation->mains(), 0);
}

TEST(AsynchronousOperationTest, isReadyOnceItsDependenciesAre) {
  const auto dependency = std::make_shared<ManualOperation>();
  const auto operation = std::make_shared<ManualOperation>();
  const auto cancelled = std::make_shared<ManualOperation>();
  operation->addDependency(dependency);
  cancelled->addDependency(dependency);
  const auto recorder = std::make_shared<Recorder>();
  operation->addObserver(recorder);
  cancelled->addObserver(recorder);
  cancelled->cancel();
  EXPECT_EQ(recorder->take(), (Lines{"will isReady ---", "did isReady r--"}));
  dependency->finish();
  EXPECT_EQ(recorder->take()[1], "did isReady r--");
}

TEST(OperationTest, isNotCancelledAfterItsEnd) {
  const auto plain = std::make_shared<Operation>();
  const auto manual = std::make_shared<ManualOperation>();
  for (const std::shared_ptr<Operation>& operation : {plain, std::shared_ptr<Operation>(manual)}) {
    operation->start();
    if (operation == manual) manual->finish();
    const auto recorder = std::make_shared<Recorder>();
    operation->addObserver(recorder);
    operation->cancel();
    EXPECT_FALSE(operation->isCancelled());
    operation->addDependency(std::make_shared<Operation>());
    EXPECT_TRUE(operation->dependencies().empty());
    EXPECT_EQ(recorder->take(), Lines{});
  }
}

TEST(OperationTest, announcesExecutionAndEndOfAPlainOperation) {
  const auto operation = std::make_shared<Operation>();
  const auto recorder = std::make_shared<Recorder>();
  Lines whenComplete;
  operation->addObserver(recorder);
  operation->addObserver(nullptr);
  operation->addDependency(nullptr);
  operation->setCompletionBlock([&] { whenComplete.push_back(recorder->last()); });
  operation->start();
  operation->start();
  EXPECT_EQ(recorder->take(),
            (Lines{"will isExecuting r--", "did isExecuting re-", "will isExecuting re-",
                   "will isFinished re-", "did isExecuting r-f", "did isFinished r-f"}));
  EXPECT_EQ(whenComplete, Lines{"did isFinished r-f"});
}

}  // namespace
}  // namespace paperloom::test
