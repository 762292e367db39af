#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <random>
#include <thread>
#include <utility>
#include <vector>

#include "paperloom/platform/OperationQueue.h"
#include "tests/operations/ManualOperation.h"

namespace paperloom::test {
namespace {

// A queue, driven by random steps beside what they must bring about. Nothing waits for the queue's
// threads between most steps, so that they meet.
class QueueAndModel {
 public:
  explicit QueueAndModel(unsigned seed) : random_(seed) {}

  void step() {
    switch (below(14)) {
      case 0:
      case 1:
      case 2:
      case 3:
        return add();
      case 4:
      case 5:
      case 6:
        return finishOne();
      case 7:
      case 8:
        return cancelOne();
      case 9:
        return removeDependency();
      case 10:
        settle();
        return queue_->setSuspended(suspended_ = !suspended_);
      case 11:
        settle();
        return queue_->setMaxConcurrentOperationCount(limit_ = static_cast<int>(below(5)) - 1);
      case 12:
        return below(4) == 0 ? cancelAll() : settle();
      default:
        return below(8) == 0 ? destroy() : settle();
    }
  }

  // Waits for what must come, and checks that nothing else has come.
  void settle() {
    std::size_t ready = 0;
    std::size_t running = 0;
    for (Item& item : items_) {
      if (item.cancelled && !item.started && !suspended_) item.finished = true;
      if (!item.isHere || item.finished) continue;
      if (item.started) ++running;
      if (!item.started && !item.cancelled && !isHeldBack(item)) {
        item.mayStart = !suspended_ && limit_ != 0;
        ++ready;
      }
    }
    if (suspended_) ready = 0;
    const std::size_t places =
        limit_ < 0 ? items_.size() : std::max(running, static_cast<std::size_t>(limit_));
    const std::size_t expected = std::min(running + ready, places);
    await([&] {
      return countHere([](const Item& item) { return item.operation->mains() > 0; }) >= expected;
    });
    for (Item& item : items_) {
      if (item.finished) await([&] { return item.operation->isFinished(); });
      item.started = item.started || (item.mayStart && item.operation->mains() > 0);
      EXPECT_EQ(item.operation->mains(), item.started ? 1 : 0) << "cancelled " << item.cancelled;
      EXPECT_EQ(item.operation->isFinished(), item.finished);
      EXPECT_EQ(item.operation->isCancelled(), item.cancelled);
      item.mayStart = false;
    }
    EXPECT_EQ(countHere([](const Item& item) { return item.started; }), expected);
    await([&] { return queue_->operationCount() == countHere([](const Item&) { return true; }); });
  }

  void destroy() {
    queue_ = std::make_unique<OperationQueue>();
    limit_ = -1;
    suspended_ = false;
    for (Item& item : items_) {
      if (!std::exchange(item.isHere, false) || item.finished) continue;
      item.cancelled = true;
      item.started = item.operation->mains() > 0;
      item.finished = !item.started;
    }
    settle();
  }

 private:
  struct Item {
    std::shared_ptr<ManualOperation> operation;
    std::vector<std::size_t> dependencies;
    bool isHere = true;  // in the present queue
    bool mayStart = false;
    bool cancelled = false, started = false, finished = false;
  };

  std::size_t below(std::size_t limit) { return random_() % limit; }
  bool isHeldBack(const Item& item) const {
    return std::any_of(item.dependencies.begin(), item.dependencies.end(),
                       [&](std::size_t index) { return !items_[index].finished; });
  }
  template <class Predicate>
  std::size_t countHere(Predicate holds) const {
    return static_cast<std::size_t>(std::count_if(
        items_.begin(), items_.end(),
        [&](const Item& item) { return item.isHere && !item.finished && holds(item); }));
  }
  template <class Condition>
  static void await(Condition condition) {
    const auto end = std::chrono::steady_clock::now() + patience;
    // Asked once more it might not hold any longer.
    bool holds = condition();
    while (!holds && std::chrono::steady_clock::now() < end) {
      std::this_thread::yield();
      holds = condition();
    }
    EXPECT_TRUE(holds);
  }

  void add() {
    Item item = {std::make_shared<ManualOperation>(), {}};
    for (std::size_t i = below(3); i > 0 && !items_.empty(); --i) {
      item.dependencies.push_back(items_.size() - 1 -
                                  below(std::min<std::size_t>(6, items_.size())));
      item.operation->addDependency(items_[item.dependencies.back()].operation);
    }
    EXPECT_TRUE(queue_->addOperation(item.operation));
    EXPECT_FALSE(queue_->addOperation(item.operation));
    items_.push_back(std::move(item));
  }

  void finishOne() {
    for (Item& item : items_) {
      if (item.finished || item.operation->mains() == 0 || below(2) == 0) continue;
      item.operation->announceReadyAgain();
      item.operation->finish();
      item.operation->finish();
      item.started = item.finished = true;
      return;
    }
  }

  // Whether a cancelled operation runs is decided once its cancel() has returned.
  void wasCancelled(Item& item) {
    const auto& operation = *item.operation;
    if (item.finished) return;
    item.cancelled = true;
    await(
        [&] { return operation.starts() == 0 || operation.mains() > 0 || operation.isFinished(); });
    item.started = operation.mains() > 0;
  }

  void cancelOne() {
    if (items_.empty()) return;
    Item& item = items_[items_.size() - 1 - below(std::min<std::size_t>(12, items_.size()))];
    item.operation->cancel();
    wasCancelled(item);
  }

  void cancelAll() {
    queue_->cancelAllOperations();
    for (Item& item : items_) {
      if (item.isHere) wasCancelled(item);
    }
  }

  void removeDependency() {
    for (Item& item : items_) {
      if (!isHeldBack(item) || item.cancelled || below(2) == 0) continue;
      item.operation->removeDependency(items_[item.dependencies.back()].operation);
      std::erase(item.dependencies, std::size_t{item.dependencies.back()});
      return;
    }
  }

  std::mt19937 random_;
  std::vector<Item> items_;
  std::unique_ptr<OperationQueue> queue_ = std::make_unique<OperationQueue>();
  int limit_ = -1;
  bool suspended_ = false;
};

TEST(OperationQueueModelTest, startsAndEndsWhatAModelOfItDoes) {
  for (unsigned seed = 1; seed <= 60 && !testing::Test::HasFailure(); ++seed) {
    SCOPED_TRACE(seed);
    QueueAndModel both(seed);
    for (int i = 0; i < 200 && !testing::Test::HasFailure(); ++i) both.step();
    both.destroy();
  }
}

}  // namespace
}  // namespace paperloom::test
