#include <future>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "tests/service/RunningService.h"

namespace paperloom::sample {
namespace {

TEST(FaultPlan, textFormIsReadOrRefusedWithASentence) {
  const auto plan = FaultPlan::parse(
      "latency=5, status=/a:404 status=/a/b:500,failures=0.25@9,cut=/c:10,silent=/d gone=3");
  ASSERT_TRUE(plan) << plan.error();
  for (const char* text :
       {"latency", "latency=", "latency=-1", "latency=99999999999999999999", "status=/a",
        "status=a:500", "status=/a:99", "failures=1.1", "failures=nan", "failures=0x1",
        "failures=0.5@", "cut=:5", "cut=/a:", "silent=", "gone=x", "speed=1"}) {
    const auto refused = FaultPlan::parse(text);
    ASSERT_FALSE(refused) << text;
    EXPECT_NE(refused.error().find(text), std::string::npos) << refused.error();
  }
}

TEST(FaultPlan, failuresComeAtTheRateAskedForAndRepeatWithTheSeed) {
  const auto first = FaultPlan::parse("failures=0.3@7");
  const auto same = FaultPlan::parse("failures=0.3@7");
  const auto other = FaultPlan::parse("failures=0.3@8");
  int failures = 0;
  int differences = 0;
  for (std::uint64_t i = 0; i < 10'000; ++i) {
    failures += first->fails(i) ? 1 : 0;
    differences += first->fails(i) != other->fails(i) ? 1 : 0;
    ASSERT_EQ(first->fails(i), same->fails(i));
  }
  EXPECT_NEAR(failures, 3000, 200);
  EXPECT_GT(differences, 0);
}

TEST(SampleFaults, statusAndCutHoldForTheirPathsUntilReplaced) {
  const RunningService running(std::string("status=/stream:503,cut=/images:100"));
  EXPECT_EQ(running.status("/stream?uids=news"), 503);
  EXPECT_EQ(running.status("/config"), 200);

  std::string got;
  const auto broken =
      running.client->Get("/images/harbour-640.jpg", [&](const char* data, size_t n) {
        got.append(data, n);
        return true;
      });
  EXPECT_FALSE(broken);
  EXPECT_EQ(got.size(), 100U);

  running.service->setFaults({});
  EXPECT_EQ(running.status("/stream"), 200);
}

TEST(SampleFaults, aServiceThatGoesAwayAnswersTheLastRequestAndNoFurther) {
  const RunningService running(std::string("gone=2"));
  EXPECT_EQ(running.status("/config"), 200);
  EXPECT_EQ(running.newClient()->Get("/config")->status, 200);
  EXPECT_EQ(running.status("/config"), 0);
  EXPECT_FALSE(running.newClient()->Get("/config"));
}

TEST(SampleService, stopsPromptlyWithSilentSlowAndIdleConnectionsOpen) {
  RunningService running(std::string("silent=/articles,latency=600000"));
  const auto idle = running.newClient();
  std::vector<std::future<bool>> waiting;
  for (const char* path : {"/articles/storm-edda-live", "/config"}) {
    waiting.push_back(std::async(std::launch::async, [&running, path] {
      return static_cast<bool>(running.newClient()->Get(path));
    }));
  }
  while (running.service->requests().size() < 2) std::this_thread::yield();
  running.service->setFaults({});
  EXPECT_EQ(idle->Get("/config")->status, 200);
  running.service->stop();
  for (auto& answer : waiting) EXPECT_FALSE(answer.get());
  EXPECT_FALSE(idle->Get("/config"));
}

}  // namespace
}  // namespace paperloom::sample
