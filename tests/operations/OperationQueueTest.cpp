#include "paperloom/platform/OperationQueue.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <random>
#include <thread>
#include <utility>
#include <vector>

#include "tests/operations/ManualOperation.h"

namespace paperloom::test {
namespace {

using namespace std::chrono_literals;

Operation::Deadline soon() { return std::chrono::steady_clock::now() + 60s; }
Operation::Deadline now() { return std::chrono::steady_clock::now(); }

class WorkOperation final : public Operation {
 public:
  explicit WorkOperation(std::function<void()> work) : work_(std::move(work)) {}
  void main() override { work_(); }

 private:
  std::function<void()> work_;
};

auto work(std::function<void()> block) { return std::make_shared<WorkOperation>(std::move(block)); }

TEST(OperationQueue, runsAPlainOperationThenItsDependentsAndItsCompletionBlock) {
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

TEST(OperationQueue, startsAnOperationOnceAndCountsItUntilItIsFinished) {
  OperationQueue queue;
  queue.setMaxConcurrentOperationCount(1);
  const auto first = std::make_shared<ManualOperation>();
  const auto second = std::make_shared<ManualOperation>();
  const auto third = std::make_shared<ManualOperation>();
  queue.addOperations({first, second, third}, false);
  first->waitUntilStarted();
  first->announceReadyAgain();  // stays ready while it is under way: no reason to start it again
  EXPECT_FALSE(queue.waitUntilAllOperationsAreFinished(now()));
  EXPECT_FALSE(first->waitUntilFinished(now()));
  EXPECT_EQ(second->starts(), 0);

  first->finish();
  first->finish();  // announced anew: it must not free a second place
  second->waitUntilStarted();
  EXPECT_EQ(queue.operationCount(), 2U);
  EXPECT_EQ(third->starts(), 0);
  const std::weak_ptr<ManualOperation> released = second;
  second->finish();
  third->waitUntilStarted();
  third->finish();
  EXPECT_TRUE(queue.waitUntilAllOperationsAreFinished(soon()));
  EXPECT_EQ(first->starts() + second->starts() + third->starts(), 3);
}

TEST(OperationQueue, doesNotHoldAThreadForAnswersThatNeverCome) {
  OperationQueue queue;
  std::vector<std::shared_ptr<Operation>> silent(200);
  for (auto& operation : silent) operation = std::make_shared<ManualOperation>();
  queue.addOperations(silent, false);
  const auto answered = work([] {});
  EXPECT_TRUE(queue.addOperations({answered, nullptr}, true, soon()));
  EXPECT_FALSE(queue.addOperations({answered, silent[0]}, true, now()));  // waits for all
  EXPECT_FALSE(queue.addOperations({silent[0], answered}, true, now()));
  EXPECT_EQ(queue.operationCount(), 200U);
}

TEST(OperationQueue, runsAsManyAtOnceAsTheLimitSaysAndNoMore) {
  constexpr int limit = 12;
  OperationQueue queue;
  queue.setMaxConcurrentOperationCount(limit);
  std::atomic<int> running{0};
  std::atomic<int> most{0};
  std::vector<std::shared_ptr<Operation>> operations;
  for (int i = 0; i < 5 * limit; ++i) {
    operations.push_back(work([&, i] {
      const int atOnce = ++running;
      for (int seen = most; seen < atOnce && !most.compare_exchange_weak(seen, atOnce);) {
      }
      // The first ones stay until all places are taken.
      const auto patience = std::chrono::steady_clock::now() + 30s;
      while (i < limit && most < limit && std::chrono::steady_clock::now() < patience) {
        std::this_thread::yield();
      }
      --running;
    }));
  }
  EXPECT_TRUE(queue.addOperations(operations, true, soon()));
  EXPECT_EQ(most, limit);
}

TEST(OperationQueue, finishesACancelledOperationWithoutRunningItWhileTheOnlyPlaceIsTaken) {
  for (const bool throughQueue : {false, true}) {
    for (const bool holdsTheThread : {false, true}) {
      std::atomic<bool> released{!holdsTheThread};
      OperationQueue queue;
      queue.setMaxConcurrentOperationCount(1);
      const auto holder = std::make_shared<ManualOperation>([&] { released.wait(false); }, false);
      const auto unready = std::make_shared<ManualOperation>();
      const auto behind = work([] { FAIL() << "cancelled"; });
      unready->addDependency(holder);
      queue.addOperations({holder, unready, behind}, false);
      while (holder->starts() == 0) std::this_thread::yield();
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

TEST(OperationQueue, runsNothingThatItHeldBackWhenAllIsCancelledOrTheQueueGoes) {
  struct Row {
    bool suspended, chained, destroys;
  };
  for (const Row row : {Row{true, false, true}, Row{true, true, true}, Row{false, false, true},
                        Row{false, true, true}, Row{false, true, false}}) {
    const auto silent = std::make_shared<ManualOperation>();
    std::atomic<int> ran{0};
    std::vector<std::shared_ptr<Operation>> held;
    auto queue = std::make_unique<OperationQueue>();
    queue->setMaxConcurrentOperationCount(4);
    queue->addOperation(silent);
    silent->waitUntilStarted();
    queue->setSuspended(row.suspended);
    for (int i = 0; i < 2000; ++i) {
      held.push_back(work([&] { ++ran; }));
      if (row.chained && i > 0) held.back()->addDependency(held[held.size() - 2]);
      const bool waits = row.suspended ? i % 2 == 1 : i == 0 || !row.chained;
      if (waits) held.back()->addDependency(silent);
    }
    queue->addOperations(held, false);
    row.destroys ? queue.reset() : queue->cancelAllOperations();
    for (const auto& operation : held) ASSERT_TRUE(operation->waitUntilFinished(soon()));
    EXPECT_EQ(ran, 0) << row.suspended << row.chained << row.destroys;
    silent->finish();
  }
}

TEST(OperationQueue, startsNothingWhileSuspendedOrWithoutPlaces) {
  OperationQueue queue;
  std::atomic<int> ran{0};
  queue.setSuspended(true);
  queue.addOperation(work([&] { ++ran; }));
  queue.setMaxConcurrentOperationCount(0);
  queue.setSuspended(false);
  queue.addOperation(work([&] { ++ran; }));
  EXPECT_FALSE(queue.waitUntilAllOperationsAreFinished(now()));
  EXPECT_EQ(ran, 0);
  queue.setMaxConcurrentOperationCount(1);
  EXPECT_TRUE(queue.waitUntilAllOperationsAreFinished(soon()));
  EXPECT_EQ(ran, 2);
}

TEST(OperationQueue, leavesOperationsInACircleUnreadyUntilOneIsCancelled) {
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

TEST(OperationQueue, isDestroyedSafelyWithOperationsInEveryState) {
  const auto silent = std::make_shared<ManualOperation>();
  const auto unready = std::make_shared<ManualOperation>();
  const auto running = work([] { std::this_thread::sleep_for(20ms); });
  std::atomic<int> finished{0};
  {
    OperationQueue queue;
    queue.addOperations({silent, running}, false);
    silent->waitUntilStarted();
    queue.setSuspended(true);
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

TEST(OperationQueue, mayBeDestroyedByItsOwnOperation) {
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
  last->setCompletionBlock([shared] {
    shared->blockRan = true;
    shared->blockRan.notify_all();
  });
  shared->queue->addOperation(last);
  shared->blockRan.wait(false);
  EXPECT_TRUE(shared->isGone);
}

TEST(OperationQueue, takesDownALongChainThatNeverRan) {
  std::shared_ptr<Operation> last = work([] {});
  for (int i = 0; i < 100'000; ++i) {
    auto next = std::make_shared<Operation>();
    next->addDependency(std::move(last));
    last = std::move(next);
  }
}

TEST(OperationQueue, runsTenThousandOperationsAfterTheirRandomDependencies) {
  constexpr std::size_t count = 10'000;
  std::mt19937 random(7);
  std::vector<std::atomic<bool>> isDone(count);
  std::vector<std::shared_ptr<Operation>> operations;
  std::atomic<int> violations{0};
  std::atomic<std::size_t> blocks{0};
  OperationQueue queues[2];
  queues[0].setMaxConcurrentOperationCount(3);
  for (std::size_t i = 0; i < count; ++i) {
    std::vector<std::size_t> before(i == 0 ? 0 : random() % 5);
    for (auto& index : before) index = random() % i;
    const auto run = [&, i, before] {
      for (const std::size_t index : before) violations += isDone[index] ? 0 : 1;
      isDone[i] = true;
    };
    std::shared_ptr<Operation> operation = work(run);
    if (i % 3 == 0) operation = std::make_shared<ManualOperation>(run, /*answersItself=*/true);
    for (const std::size_t index : before) operation->addDependency(operations[index]);
    operation->setCompletionBlock([&] { ++blocks; });
    operations.push_back(operation);
    if (i % 2 == 0) queues[i % 4 / 2].addOperation(operation);
  }
  std::shuffle(operations.begin(), operations.end(), random);
  for (const auto& operation : operations) queues[random() % 2].addOperation(operation);
  for (OperationQueue& queue : queues) {
    ASSERT_TRUE(queue.waitUntilAllOperationsAreFinished(std::chrono::steady_clock::now() +
                                                        std::chrono::minutes(2)));
  }
  EXPECT_EQ(violations, 0);
  for (const auto& done : isDone) EXPECT_TRUE(done);
  while (blocks < count) std::this_thread::yield();
}

}  // namespace
}  // namespace paperloom::test
