#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "paperloom/testing/Fetch.h"
#include "paperloom/testing/ScriptedServer.h"
#include "tests/support/Soak.h"

namespace paperloom::test {
namespace {

using namespace std::chrono_literals;
using Code = URLError::Code;
using Request = ScriptedServer::Request;

TEST(LifetimeTest, cancelReachesATaskInEveryState) {
  ScriptedServer server([](const Request& request) -> Script {
    if (request.target == "/ok") return answer("x");
    return {send("HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\nabc"), hang()};
  });
  URLSession session({});
  Pending suspended = prepare(session, URLRequest(server.url("/ok")));
  suspended.task->cancel();
  suspended.task->resume();
  EXPECT_EQ(suspended.get().code(), Code::cancelled);

  Pending running = start(session, URLRequest(server.url("/hang")));
  ASSERT_TRUE(pumpUntil([&] { return running.task->countOfBytesReceived() >= 3; }));
  EXPECT_EQ(running.task->countOfBytesExpectedToReceive(), 9);
  running.task->cancel();
  running.task->cancel();
  const Answer received = running.get();
  EXPECT_EQ(received.code(), Code::cancelled);
  EXPECT_EQ(received.errorText(), "cancelled");
  EXPECT_FALSE(received.response || received.data);
  EXPECT_EQ(running.task->state(), URLSessionTask::State::completed);

  // The answer is there, but its completion waits behind the one that cancels it.
  Pending late = prepare(session, URLRequest(server.url("/ok")));
  session
      .dataTask(URLRequest(server.url("/ok")),
                [&](const auto&, const auto&, const auto&) {
                  late.task->resume();
                  EXPECT_TRUE(pumpUntil([&] { return late.task->countOfBytesReceived() > 0; }));
                  late.task->cancel();
                })
      ->resume();
  EXPECT_EQ(late.get().code(), Code::cancelled);
  URLSessionTask::unattached(URLRequest(server.url()))->cancel();
}

TEST(LifetimeTest, destroyingASessionCancelsWhatIsInFlightAndNothingIsCalledAfterwards) {
  ScriptedServer server({hang()});
  std::atomic<int> cancelled = 0;
  std::shared_ptr<URLSessionTask> survivor;
  {
    URLSession session({.httpMaximumConnectionsPerHost = 2});
    for (int i = 0; i < 5; ++i) {
      survivor = session.dataTask(URLRequest(server.url()),
                                  [&](const auto& data, const auto&, const auto& error) {
                                    EXPECT_FALSE(data);
                                    if (error && error->code == Code::cancelled) ++cancelled;
                                  });
      survivor->resume();
    }
  }
  EXPECT_EQ(cancelled, 5);
  survivor->cancel();
  survivor->setPriority(1);
  EXPECT_EQ(survivor->state(), URLSessionTask::State::completed);
}

TEST(LifetimeTest, aCallbackMayStartRequestsAndReleaseTheSession) {
  ScriptedServer server(hangingOnRequest);
  auto session = std::make_shared<URLSession>(URLSessionConfiguration{});
  std::vector<std::string> order;
  std::promise<void> done;
  const auto note = [&](std::string what) { order.push_back(std::move(what)); };
  URLSession* raw = session.get();
  // The completion holds the last reference, and a task is still in flight.
  auto first = raw->dataTask(
      URLRequest(server.url()), [&, session](const auto&, const auto&, const auto&) mutable {
        auto next = session->dataTask(
            URLRequest(server.url()),
            [&, session = std::move(session)](const auto& data, const auto&, const auto&) mutable {
              note(data ? "second" : "no data");
              session.reset();
              note("released");
              done.set_value();
            });
        next->resume();
      });
  raw->dataTask(URLRequest(server.url("/hang")),
                [&](const auto&, const auto&, const auto& error) {
                  note(error && error->code == Code::cancelled ? "cancelled" : "wrong");
                })
      ->resume();
  session.reset();
  first->resume();
  first.reset();
  await(done.get_future());
  EXPECT_EQ(order, (std::vector<std::string>{"second", "cancelled", "released"}));
}

TEST(LifetimeTest, whatTakesLongIsPreparedBesideTheCallbackQueueAndASessionWaitsForIt) {
  ScriptedServer server(answer("x", "Cache-Control: max-age=9\r\n"));
  auto session = std::make_unique<URLSession>(
      URLSessionConfiguration{.urlCache = std::make_shared<URLCache>()});
  std::promise<void> release;
  const std::shared_future<void> released = release.get_future().share();
  std::atomic<int> prepared = 0;
  std::atomic<int> cancelled = 0;
  std::vector<std::string> order;
  const auto startSlow = [&] {
    return session->dataTask(
        URLRequest(server.url()),
        [&](const auto&, const auto&, const auto& error) {
          if (error) return void(++cancelled);
          order.emplace_back("completed");
        },
        [&](const auto&, const auto&) {
          order.emplace_back("judged");
          return true;
        },
        [&, released](const auto& data, const auto&, const auto&) {
          ++prepared;
          released.wait();
          if (data) order.emplace_back("prepared");
        });
  };
  auto slow = startSlow();
  slow->resume();
  ASSERT_TRUE(pumpUntil([&] { return prepared == 1; }));
  EXPECT_EQ(fetch(*session, URLRequest(server.url("/quick"))).body(), "x");
  EXPECT_TRUE(order.empty());

  const auto another = startSlow();
  another->cancel();
  ASSERT_TRUE(pumpUntil([&] { return cancelled == 1; }));
  std::thread later([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    release.set_value();
  });
  session.reset();
  later.join();
  EXPECT_EQ(order, (std::vector<std::string>{"prepared", "judged", "completed"}));
  EXPECT_EQ(prepared, 1);
}

TEST(SessionEnduranceTest, sessionsComeAndGoWithTasksInEveryState) {
  ScriptedServer server(hangingOnRequest);
  std::atomic<int> completions = 0;
  const int cycles = soakTimes(100);
  for (int cycle = 0; cycle < cycles; ++cycle) {
    URLSession session({});
    const auto count = [&](const auto&, const auto&, const auto&) { ++completions; };
    auto answered = session.dataTask(URLRequest(server.url("/ok")), count);
    auto hanging = session.dataTask(URLRequest(server.url("/hang")), count);
    answered->resume();
    hanging->resume();
    std::thread other([&] { (cycle % 2 == 0 ? answered : hanging)->cancel(); });
    if (cycle % 3 == 0) std::this_thread::yield();
    other.join();
  }
  EXPECT_EQ(completions, 2 * cycles);
}

TEST(SessionEnduranceTest, manyThreadsShareASessionAndEveryTaskIsAnsweredOnceWithItsOwn) {
  const auto echo = [](const Request& request) -> Script {
    const auto number = std::atoi(request.target.c_str() + 1);
    if (number % 7 == 0) return {closeConnection()};
    const char* fields = number % 3 == 0 ? "Cache-Control: max-age=100\r\n" : "";
    if (number % 5 == 0) return then(answer(request.target, fields), closeConnection());
    return answer(request.target, fields);
  };
  ScriptedServer one(echo);
  ScriptedServer two(echo);
  std::atomic<int> completions = 0;
  std::atomic<int> wrong = 0;
  const int each = soakTimes(150);
  {
    URLSession session({.urlCache = std::make_shared<URLCache>(1 << 20, 0, ""),
                        .httpMaximumConnectionsPerHost = 3});
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
      threads.emplace_back([&, t] {
        for (int i = 0; i < each; ++i) {
          const std::string target = "/" + std::to_string((i * 31 + t) % 97 + 1);
          auto task = session.dataTask(
              URLRequest((i % 2 == 0 ? one : two).url(target)),
              [&, target](const auto& data, const auto&, const auto& error) {
                ++completions;
                if (data.has_value() == error.has_value() || (data && data->view() != target)) {
                  ++wrong;
                }
              });
          task->setPriority(static_cast<float>(i % 10) / 10);
          task->resume();
          if (i % 11 == 0) task->cancel();
          if (i % 16 == 0) std::this_thread::sleep_for(1ms);
        }
      });
    }
    for (std::thread& thread : threads) thread.join();
    pumpUntil([&] { return completions >= 3 * each; });
  }
  EXPECT_EQ(completions, 4 * each);
  EXPECT_EQ(wrong, 0);
}

TEST(LifetimeTest, whatCannotBeReachedFailsWithoutAnAnswer) {
  std::optional<URL> closed;
  {
    ScriptedServer server(answer("x"));
    closed = server.url();
  }
  URLSession session({});
  const Answer refused = fetch(session, URLRequest(*closed));
  EXPECT_EQ(refused.code(), Code::cannotConnectToHost);
  EXPECT_EQ(refused.errorText(), "could not connect to the server");
  const Answer unknown = fetch(session, URLRequest(*URL::parse("http://name.invalid/")));
  EXPECT_EQ(unknown.code(), Code::cannotFindHost);
  EXPECT_EQ(unknown.errorText(), "the server could not be found");
}

}  // namespace
}  // namespace paperloom::test
