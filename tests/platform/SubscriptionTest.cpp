#include "paperloom/platform/Subscription.h"

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <thread>

#include "paperloom/network/RequestCallback.h"
#include "paperloom/platform/DispatchQueue.h"
#include "paperloom/testing/Waiting.h"

namespace paperloom::test {
namespace {

TEST(SubscriptionTest, waitAtTheirEndForTheCallbackThatRunsElsewhereAndLetNoneBegin) {
  std::promise<void> begun;
  std::promise<void> mayEnd;
  std::atomic<bool> ended = false;
  int calls = 0;
  auto owner = std::make_unique<Subscription>();
  const auto callback = (*owner)([&] {
    ++calls;
    begun.set_value();
    mayEnd.get_future().wait();
    ended = true;
  });
  std::jthread runner([&] { callback(); });
  await(begun.get_future());
  std::jthread ender([&] {
    owner.reset();
    EXPECT_TRUE(ended);
  });
  // The end has begun when nothing new gets in.
  const auto token = callback.owner();
  EXPECT_TRUE(pumpUntil([&] { return !token->isActive(); }));
  callback();
  mayEnd.set_value();
  runner.join();
  ender.join();
  callback();
  EXPECT_EQ(calls, 1);
}

TEST(SubscriptionTest, endWithinTheirOwnCallbacksAlsoInTwoThreadsAtOnce) {
  auto owner = std::make_unique<Subscription>();
  std::atomic<int> inside = 0;
  const auto callback = (*owner)([&] {
    ++inside;
    EXPECT_TRUE(pumpUntil([&] { return inside == 2; })) << "one waits for the other";
    owner->cancel();
  });
  std::thread other(callback);
  callback();
  other.join();
  auto second = std::make_unique<Subscription>();
  const auto ending = (*second)([&] { second.reset(); });
  ending();
  EXPECT_EQ(second, nullptr);
}

TEST(SubscriptionTest, ownCallbacksOfEveryShapeAndEmptyOnes) {
  const Subscription owner;
  int heard = 0;
  const FailureCallback callbacks[] = {
      owner([&](const PaperloomError&) { ++heard; }),
      owner([&](auto, const Provenance& from) { heard += from.statusCode.value_or(0); }),
      owner(std::function<void(PaperloomError)>()), nullptr};
  for (const FailureCallback& callback : callbacks) {
    callback(PaperloomError::networkError(""), {.statusCode = 10});
  }
  EXPECT_EQ(heard, 11);
}

TEST(CallbackDeathTest, whatLeavesAHostsFunctionEndsTheProcess) {
  ::testing::FLAGS_gtest_death_test_style = "threadsafe";
  EXPECT_DEATH(
      {
        DispatchQueue::main().async([] { throw 1; });
        try {
          DispatchQueue::main().runPending();
        } catch (int) {
          std::exit(0);
        }
      },
      "terminate");
}

}  // namespace
}  // namespace paperloom::test
