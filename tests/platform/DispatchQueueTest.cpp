#include "paperloom/platform/DispatchQueue.h"

#include <gtest/gtest.h>
#include <poll.h>

#include <string>
#include <thread>

namespace paperloom::test {
namespace {

bool isReadable(const DispatchQueue& queue) {
  pollfd descriptor{queue.fileDescriptor(), POLLIN, 0};
  return ::poll(&descriptor, 1, 0) == 1;
}

TEST(DispatchQueueTest, stopLeavesWhatIsQueuedInItsOrder) {
  DispatchQueue queue;
  std::string order;
  queue.async([&] {
    order += '1';
    queue.stop();
    queue.async([&] { order += '3'; });
  });
  queue.async([&] { order += '2'; });
  queue.run();
  EXPECT_EQ(order, "1");
  EXPECT_TRUE(isReadable(queue));
  EXPECT_EQ(queue.runPending(), 2U);
  EXPECT_EQ(order, "123");
  queue.stop();
  queue.run();
  EXPECT_FALSE(isReadable(queue));
}

TEST(DispatchQueueTest, runWaitsForWorkOfOtherThreads) {
  DispatchQueue queue;
  std::thread other([&] {
    for (int i = 0; i < 1000; ++i) queue.async([] {});
    queue.async([&] { queue.stop(); });
  });
  queue.run();
  other.join();
}

TEST(DispatchQueueTest, aHostIsWokenWheneverTheQueueStopsBeingEmpty) {
  DispatchQueue queue;
  int woken = 0;
  queue.setWakeUp([&] { ++woken; });
  queue.async([&] { queue.async([] {}); });
  queue.async([] {});
  EXPECT_EQ(woken, 1);
  EXPECT_EQ(queue.runPending(), 2U) << "work queued meanwhile waits for the next call";
  EXPECT_EQ(woken, 2);
  EXPECT_TRUE(isReadable(queue));
  EXPECT_EQ(queue.runPending(), 1U);
  EXPECT_FALSE(isReadable(queue));
}

}  // namespace
}  // namespace paperloom::test
