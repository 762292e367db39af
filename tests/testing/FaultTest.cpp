#include <future>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "tests/testing/RunningService.h"

namespace paperloom::test {
namespace {

TEST(FaultTest, textFormIsReadOrRefusedWithASentence) {
  const auto plan = sample::FaultPlan::parse(
      "latency=5, status=/a:404 status=/a/b:500,failures=0.25@9,cut=/c:10,silent=/d gone=3");
  ASSERT_TRUE(plan) << plan.error();
  for (const char* text :
       {"latency", "latency=", "latency=-1", "latency=99999999999999999999", "status=/a",
        "status=a:500", "status=/a:99", "failures=1.1", "failures=nan", "failures=0x1",
        "failures=0.5@", "cut=:5", "cut=/a:", "silent=", "gone=x", "speed=1"}) {
    const auto refused = sample::FaultPlan::parse(text);
    ASSERT_FALSE(refused) << text;
    EXPECT_NE(refused.error().find(text), std::string::npos) << refused.error();
  }
}

TEST(SampleFaultsTest, aServiceThatGoesAwayAnswersTheLastRequestAndNoFurther) {
  RunningService running("gone=2");
  for (const int status : {200, 200, 0, 0}) EXPECT_EQ(running.get("/config").status(), status);
}

TEST(SampleServiceTest, stopsPromptlyWithSilentSlowAndIdleConnectionsOpen) {
  RunningService running("silent=/articles,latency=600000");
  const auto begin = [&](const char* target) {
    return start(running.session, URLRequest(*URL::parse(running.service->baseURL() + target)));
  };
  Pending waiting[] = {begin("/articles/storm-edda-live"), begin("/config")};
  EXPECT_TRUE(pumpUntil([&] { return running.service->requests().size() == 2; }));
  running.service->setFaults({});
  EXPECT_EQ(running.get("/config").status(), 200);
  running.service->stop();
  for (Pending& each : waiting) EXPECT_EQ(each.get().status(), 0);
  EXPECT_EQ(running.get("/config").status(), 0);
}

}  // namespace
}  // namespace paperloom::test
