#include "paperloom/platform/OperationQueue.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
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
  const auto first = work([&] { EXPECT_EQ(++step, 1); });
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
    EXPECT_TRUE(queue.addOperations({third, second, first}, true, soon()));
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

TEST(OperationQueueTest, runsAsManyAtOnceAsTheLimitSaysAndNoMore) {
  constexpr int limit = 12;
  OperationQueue queue;
  for (const int count : {-9, 0, limit}) {
    queue.setMaxConcurrentOperationCount(count);
    EXPECT_EQ(queue.maxConcurrentOperationCount(), std::max(count, -1));
  }
  EXPECT_FALSE(queue.isSuspended());
  std::atomic<int> running{0};
  std::atomic<int> most{0};
  std::vector<std::shared_ptr<Operation>> operations;
  for (int i = 0; i < 5 * limit; ++i) {
    operations.push_back(work([&, i] {
      const int atOnce = ++running;
      for (int seen = most; seen < atOnce && !most.compare_exchange_weak(seen, atOnce);) {
      }
      // The first ones stay until all places are taken.
      const auto end = *soon();
      while (i < limit && most < limit && std::chrono::steady_clock::now() < end) {
        std::this_thread::yield();
      }
      --running;
    }));
  }
  EXPECT_TRUE(queue.addOperations(operations, true, soon()));
  EXPECT_EQ(most, limit);
}

TEST(OperationQueueTest, finishesACancelledOperationWithoutRunningItWhileTheOnlyPlaceIsTaken) {
  for (const bool throughQueue : {false, true}) {
    for (const bool holdsTheThread : {false, true}) {
      std::atomic<bool> released{!holdsTheThread};
      OperationQueue queue;
      queue.setMaxConcurrentOperationCount(1);
      const auto holder = std::make_shared<ManualOperation>([&] { released.wait(false); });
      const auto unready = std::make_shared<ManualOperation>();
      const auto behind = work([] { FAIL() << "cancelled"; });
      unready->addDependency(holder);
      queue.addOperations({holder, unready, behind}, false);
      EXPECT_TRUE(pumpUntil([&] { return holder->starts() > 0; }));
      if (throughQueue) {
        queue.cancelAllOperations();
      } else {
        behind->cancel();
        unready->cancel();
      }
      EXPECT_TRUE(behind->waitUntilFinished(soon()));
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
