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
