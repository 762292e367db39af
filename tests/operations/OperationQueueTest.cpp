#include "paperloom/platform/OperationQueue.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "tests/operations/ManualOperation.h"

namespace paperloom::test {
namespace {

using namespace std::chrono_literals;

Operation::Deadline soon() { return std::chrono::steady_clock::now() + patience; }
Operation::Deadline now() { return std::chrono::steady_clock::now(); }

class WorkOperation final : public Operation {
 public:
  explicit WorkOperation(std::function<void()> work) : work_(std::move(work)) {}
  void main() override { work_(); }

 private:
  std::function<void()> work_;
};

auto work(std::function<void()> block) { return std::make_shared<WorkOperation>(std::move(block)); }

TEST(OperationQueueTest, runsAPlainOperationThenItsDependentsAndItsCompletionBlock) {
  std::atomic<int> step{0};
  std::atomic<bool> blockRan{false};
  const auto first = work([&] {
    std::this_thread::sleep_for(5ms);
    EXPECT_EQ(++step, 1);
  });
  const auto second = work([&] { EXPECT_EQ(++step, 2); });
  const auto third = work([&] { EXPECT_EQ(++step, 3); });
  second->addDependency(first);
  third->addDependency(second);
  third->setCompletionBlock([&] {
    EXPECT_TRUE(third->isFinished());
    blockRan = true;
  });
  {
    OperationQueue queue;
    EXPECT_TRUE(queue.addOperations({third, second, first}, false));
    EXPECT_TRUE(queue.waitUntilAllOperationsAreFinished());
    EXPECT_FALSE(queue.addOperation(first));  // nothing runs twice
    EXPECT_EQ(queue.operationCount(), 0U);
  }
  EXPECT_EQ(step, 3);
  EXPECT_TRUE(blockRan);
}

TEST(OperationQueueTest, doesNotHoldAThreadForAnswersThatNeverCome) {
  OperationQueue queue;
  std::vector<std::shared_ptr<Operation>> silent(200);
  for (auto& operation : silent) operation = std::make_shared<ManualOperation>();
  queue.addOperations(silent, false);
  const auto answered = work([] {});
  EXPECT_TRUE(queue.addOperations({answered, nullptr}, true, soon()));
  EXPECT_FALSE(queue.addOperations({answered, silent[0]}, true, now()));  // waits for all
  EXPECT_FALSE(queue.addOperations({silent[0], answered}, true, now()));
  EXPECT_EQ(queue.operationCount(), 200U);
  EXPECT_FALSE(queue.waitUntilAllOperationsAreFinished(now()));
  EXPECT_FALSE(silent[0]->waitUntilFinished(now()));
}

TEST(OperationQueueTest, runsAsManyAtOnceAsTheLimitSaysAndItsThreadsAllow) {
  for (const auto& [limit, threads] : {std::pair(12, 12), {100, 64}}) {
    OperationQueue queue;
    for (const int count : {-9, 0, limit}) {
      queue.setMaxConcurrentOperationCount(count);
      EXPECT_EQ(queue.maxConcurrentOperationCount(), std::max(count, -1));
    }
    EXPECT_FALSE(queue.isSuspended());
    std::atomic<int> running{0};
    std::atomic<int> most{0};
    std::vector<std::shared_ptr<Operation>> operations;
    for (int i = 0; i < 5 * threads; ++i) {
      operations.push_back(work([&, expected = threads] {
        const int atOnce = ++running;
        for (int seen = most; seen < atOnce && !most.compare_exchange_weak(seen, atOnce);) {
        }
        // All stay until all places are taken, and a moment more.
        EXPECT_TRUE(pumpUntil([&] { return most >= expected; }));
        std::this_thread::sleep_for(1ms);
        --running;
      }));
    }
    EXPECT_TRUE(queue.addOperations(operations, true, soon()));
    EXPECT_EQ(most, threads);
  }
}

TEST(OperationQueueTest, finishesACancelledOperationWithoutRunningItWhileTheOnlyPlaceIsTaken) {
  for (const bool throughQueue : {false, true}) {
    for (const bool holdsTheThread : {false, true}) {
      std::atomic<bool> released{!holdsTheThread};
      OperationQueue queue;
      queue.setMaxConcurrentOperationCount(1);
      const auto holder = std::make_shared<ManualOperation>([&] { released.wait(false); });
      const auto unready = std::make_shared<ManualOperation>();
      std::vector<std::shared_ptr<Operation>> behind(9);
      for (auto& each : behind) each = work([] { FAIL() << "cancelled"; });
      unready->addDependency(holder);
      queue.addOperations({holder, unready}, false);
      queue.addOperations(behind, false);
      EXPECT_TRUE(pumpUntil([&] { return holder->starts() > 0; }));
      if (throughQueue) queue.cancelAllOperations();
      for (const auto& each : behind) {
        each->cancel();
        EXPECT_TRUE(each->waitUntilFinished(soon()));
      }
      unready->cancel();
      EXPECT_TRUE(unready->waitUntilFinished(soon()));
      EXPECT_EQ(unready->mains(), 0);
      EXPECT_FALSE(holder->isFinished());
      released = true;
      released.notify_all();
      holder->waitUntilStarted();
      holder->finish();
      EXPECT_TRUE(queue.waitUntilAllOperationsAreFinished(soon()));
    }
  }
}

// Asks the test whether it is ready, and whether it has finished.
class AskingOperation final : public Operation {
 public:
  ~AskingOperation() override {
    if (whenDestroyed) whenDestroyed();
  }
  bool isReady() const override { return answer(); }
  bool isFinished() const override {
    return (endsWhileItIsAdded && ++askedForItsEnd > 1) || Operation::isFinished();
  }
  void main() override { ran = true; }
  void announce() {
    willChangeValue(isReadyKey);
    didChangeValue(isReadyKey);
  }

  std::function<bool()> answer = [] { return true; };
  std::function<void()> whenDestroyed;
  bool endsWhileItIsAdded = false;
  mutable std::atomic<int> askedForItsEnd{0};
  std::atomic<bool> ran{false};
};

TEST(OperationQueueTest, asksAgainWhatWasAnnouncedOrCancelledWhileItWasAskedAndNothingElse) {
  for (const std::string_view meanwhile : {"nothing", "announced", "cancelled"}) {
    SCOPED_TRACE(meanwhile);
    std::atomic<int> asked{0};
    std::atomic<bool> mayAnswer{false};
    const auto operation = std::make_shared<AskingOperation>();
    operation->answer = [&] {
      return ++asked != 2 || !pumpUntil([&] { return mayAnswer.load(); });  // the second time: no
    };
    OperationQueue queue;
    queue.setMaxConcurrentOperationCount(1);
    queue.addOperation(operation);
    EXPECT_TRUE(pumpUntil([&] { return asked == 2; }));
    if (meanwhile == "announced") operation->announce();
    if (meanwhile == "cancelled") operation->cancel();
    mayAnswer = true;
    EXPECT_TRUE(queue.addOperations({work([] {})}, true, soon())) << "the place is free";
    if (meanwhile == "nothing") {
      EXPECT_EQ(asked, 2);
      EXPECT_FALSE(operation->isFinished());
      operation->announce();
    }
    EXPECT_TRUE(operation->waitUntilFinished(soon()));
    EXPECT_EQ(operation->ran, meanwhile != "cancelled");
  }
}

TEST(OperationQueueTest, keepsNothingThatEndsWhileItIsAddedAndLetsGoWithoutALock) {
  const auto queue = std::make_shared<OperationQueue>();
  const auto early = std::make_shared<AskingOperation>();
  early->endsWhileItIsAdded = true;
  EXPECT_TRUE(queue->addOperation(early));
  EXPECT_EQ(queue->operationCount(), 0U);
  EXPECT_FALSE(early->ran);
  std::atomic<bool> destroyed{false};
  auto last = std::make_shared<AskingOperation>();
  last->whenDestroyed = [&] {
    auto counted = std::make_shared<std::atomic<bool>>(false);
    std::thread([queue, counted] { *counted = queue->operationCount() == 0; }).detach();
    EXPECT_TRUE(pumpUntil([&] { return counted->load(); }));
    destroyed = true;
  };
  queue->addOperation(std::move(last));
  EXPECT_TRUE(pumpUntil([&] { return destroyed.load(); }));
}

TEST(OperationQueueTest, runsNothingThatItHeldBackWhenAllIsCancelledOrTheQueueGoes) {
  struct Row {
    bool suspended, chained, destroys;
  };
  for (const Row row : {Row{true, false, true}, Row{true, true, true}, Row{false, false, true},
                        Row{false, true, true}, Row{false, true, false}}) {
    SCOPED_TRACE(testing::Message() << row.suspended << row.chained << row.destroys);
    const auto silent = std::make_shared<ManualOperation>();
    std::atomic<int> ran{0};
    std::vector<std::shared_ptr<Operation>> held;
    auto queue = std::make_unique<OperationQueue>();
    queue->setMaxConcurrentOperationCount(4);
    queue->addOperation(silent);
    silent->waitUntilStarted();
    queue->setSuspended(row.suspended);
    for (int i = 0; i < 1000; ++i) {
      held.push_back(work([&] { ++ran; }));
      if (row.chained && i > 0) held.back()->addDependency(held[held.size() - 2]);
      const bool waits = row.suspended ? i % 2 == 1 : i == 0 || !row.chained;
      if (waits) held.back()->addDependency(silent);
    }
    queue->addOperations(held, false);
    row.destroys ? queue.reset() : queue->cancelAllOperations();
    for (const auto& operation : held) ASSERT_TRUE(operation->waitUntilFinished(soon()));
    EXPECT_EQ(ran, 0);
    silent->finish();
  }
}

TEST(OperationQueueTest, leavesOperationsInACircleUnreadyUntilOneIsCancelled) {
  OperationQueue queue;
  const auto first = work([] { FAIL() << "cancelled"; });
  const auto second = work([] {});
  const auto self = work([] {});
  first->addDependency(second);
  second->addDependency(first);
  self->addDependency(self);
  queue.addOperations({first, second, self}, false);
  EXPECT_TRUE(queue.addOperations({work([] {})}, true, soon()));
  EXPECT_EQ(queue.operationCount(), 3U);
  first->cancel();
  EXPECT_TRUE(second->waitUntilFinished(soon()));
  self->removeDependency(self);
  EXPECT_TRUE(queue.waitUntilAllOperationsAreFinished(soon()));
}

TEST(OperationQueueTest, isDestroyedSafelyWithOperationsInEveryState) {
  const auto silent = std::make_shared<ManualOperation>();
  const auto unready = std::make_shared<ManualOperation>();
  const auto running = work([] { std::this_thread::sleep_for(20ms); });
  std::atomic<int> finished{0};
  {
    OperationQueue queue;
    queue.addOperations({silent, running}, false);
    silent->waitUntilStarted();
    queue.setSuspended(true);
    EXPECT_TRUE(queue.isSuspended());
    unready->addDependency(silent);
    const auto held = work([] { FAIL() << "suspended"; });
    for (const auto& operation : std::vector<std::shared_ptr<Operation>>{unready, held}) {
      operation->setCompletionBlock([&] { ++finished; });
      queue.addOperation(operation);
    }
  }
  EXPECT_EQ(finished, 2);
  EXPECT_EQ(unready->mains(), 0);
  EXPECT_TRUE(running->isFinished());
  EXPECT_TRUE(silent->isCancelled());
  EXPECT_FALSE(silent->isFinished());
  EXPECT_EQ(silent.use_count(), 1);
  silent->finish();
}

TEST(OperationQueueTest, mayBeDestroyedByItsOwnOperation) {
  // Nobody waits for the queue's threads then: they share what they touch.
  struct Shared {
    std::unique_ptr<OperationQueue> queue = std::make_unique<OperationQueue>();
    std::atomic<bool> isGone{false};
    std::atomic<bool> blockRan{false};
  };
  const auto shared = std::make_shared<Shared>();
  const auto last = work([shared] {
    shared->queue.reset();
    shared->isGone = true;
  });
  last->setCompletionBlock([shared] { shared->blockRan = true; });
  shared->queue->addOperation(last);
  EXPECT_TRUE(pumpUntil([&] { return shared->blockRan.load(); }));
  EXPECT_TRUE(shared->isGone);
}

TEST(OperationQueueTest, takesDownALongChainThatNeverRan) {
  std::shared_ptr<Operation> last = work([] {});
  for (int i = 0; i < 100'000; ++i) {
    auto next = std::make_shared<Operation>();
    next->addDependency(std::move(last));
    last = std::move(next);
  }
}

}  // namespace
}  // namespace paperloom::test
