#include <atomic>
#include <chrono>
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
  EXPECT_EQ(plan->latency, std::chrono::milliseconds(5));
  EXPECT_EQ(plan->statuses.size(), 2U);
  EXPECT_EQ(plan->statuses[1].path, "/a/b");
  EXPECT_EQ(plan->seed, 9U);
  EXPECT_EQ(plan->cuts[0].bytes, 10U);
  EXPECT_EQ(plan->goneAfter, 3U);

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
  for (const double rate : {0.0, 0.3, 1.0}) {
    FaultPlan plan;
    plan.failureRate = rate;
    int failures = 0;
    for (std::uint64_t i = 0; i < 10'000; ++i) failures += plan.fails(i) ? 1 : 0;
    EXPECT_NEAR(failures, rate * 10'000, 200);
  }
  std::vector<std::vector<int>> runs;
  for (const char* faults : {"failures=0.5@7", "failures=0.5@7", "failures=0.5@8"}) {
    const RunningService running{std::string(faults)};
    runs.emplace_back();
    for (int i = 0; i < 32; ++i) runs.back().push_back(running.status("/config"));
  }
  EXPECT_EQ(runs[0], runs[1]);
  EXPECT_NE(runs[0], runs[2]);
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
  EXPECT_EQ(running.status("/images/harbour-640.jpg"), 200);
  EXPECT_EQ(running.service->requests().size(), 5U);
  EXPECT_EQ(running.service->requests()[0].target, "/stream?uids=news");
}

TEST(SampleFaults, aServiceThatGoesAwayAnswersTheLastRequestAndNoFurther) {
  const RunningService running(std::string("gone=2"));
  const auto other = running.newClient();
  EXPECT_EQ(running.status("/config"), 200);
  EXPECT_EQ(other->Get("/config")->status, 200);
  EXPECT_EQ(running.status("/config"), 0);
  EXPECT_FALSE(other->Get("/config"));
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

TEST(SampleService, portInUseIsASentenceAndAFreedPortCanBeUsedAgain) {
  RunningService running;
  const int port = running.service->port();
  EXPECT_EQ(running.status("/config"), 200);
  const auto second = SampleService::start({.port = port});
  ASSERT_FALSE(second);
  EXPECT_NE(second.error().find("port " + std::to_string(port)), std::string::npos);
  EXPECT_FALSE(SampleService::start({.port = 70000}));
  running.service->stop();
  EXPECT_TRUE(SampleService::start({.port = port}));
}

TEST(SampleService, manyKeptConnectionsAreAnsweredAtOnce) {
  const RunningService running;
  constexpr int clients = 24;
  std::atomic<int> ready = 0;
  std::atomic<int> answered = 0;
  std::vector<std::thread> threads;
  for (int i = 0; i < clients; ++i) {
    threads.emplace_back([&] {
      const auto client = running.newClient();
      if (!client->Get("/config")) return;
      // Nobody lets go of a connection before everybody has one.
      for (++ready; ready < clients;) std::this_thread::yield();
      for (int n = 0; n < 20; ++n) {
        const auto result = client->Get(n % 2 == 0 ? "/stream" : "/images/harbour-320.jpg");
        if (result && result->status == 200) ++answered;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(answered, clients * 20);
  EXPECT_EQ(running.service->requests().size(), static_cast<std::size_t>(clients * 21));
}

}  // namespace
}  // namespace paperloom::sample
