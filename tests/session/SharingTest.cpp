#include <gtest/gtest.h>

#include <atomic>
#include <random>
#include <thread>

#include "paperloom/testing/Fetch.h"
#include "paperloom/testing/ScriptedServer.h"
#include "tests/support/Soak.h"

namespace paperloom::test {
namespace {

using Code = URLError::Code;
using Request = ScriptedServer::Request;

// Answers when it is released.
Script held(Script script) {
  script.insert(script.begin(), awaitRelease());
  return script;
}

URLRequest sharing(const URL& url) {
  URLRequest request(url);
  request.sharesAnswer = true;
  return request;
}

std::string outcomeOf(Answer answer) {
  if (!answer.error) return answer.body();
  return answer.code() == Code::cancelled ? "cancelled" : "failure";
}

TEST(SharingTest, equalRequestsUnderWayAreOneAndUnequalOnesAreNot) {
  const std::pair<const char*, std::function<void(URLRequest&)>> cases[] = {
      {"equal", [](URLRequest&) {}},
      {"its own", [](URLRequest& request) { request.sharesAnswer = false; }},
      {"method", [](URLRequest& request) { request.method = "HEAD"; }},
      {"body", [](URLRequest& request) { request.body = Data("x"); }},
      {"field", [](URLRequest& request) { request.headers.add("Accept", "image/webp"); }},
      {"account", [](URLRequest& request) { request.headers.add("Authorization", "Bearer b"); }},
      {"part", [](URLRequest& request) { request.headers.add("Range", "bytes=0-1"); }},
      {"policy",
       [](URLRequest& request) {
         request.cachePolicy = URLRequestCachePolicy::reloadIgnoringLocalCacheData;
       }},
      {"age", [](URLRequest& request) { request.refreshIfOlderThan = std::chrono::hours(1); }},
      {"redirects", [](URLRequest& request) { request.followsRedirects = false; }},
      {"origin", [](URLRequest& request) { request.staysAtOrigin = true; }},
      {"fragment", [](URLRequest& request) { request.url = *request.url.resolving("#part"); }},
  };
  for (const auto& [name, change] : cases) {
    for (const bool isStored : {false, true}) {
      SCOPED_TRACE(std::string(name) + (isStored ? " stored" : ""));
      ScriptedServer server(held(answer("x", "Cache-Control: max-age=60\r\n")));
      URLSession session({.urlCache = isStored ? std::make_shared<URLCache>() : nullptr});
      URLRequest other = sharing(server.url("/a"));
      change(other);
      std::vector<Pending> tasks;
      for (int i = 0; i < 4; ++i) tasks.push_back(start(session, sharing(server.url("/a"))));
      tasks.push_back(start(session, other));
      const std::size_t requests = name == std::string_view("equal") ? 1 : 2;
      EXPECT_TRUE(pumpUntil([&] { return server.requests().size() == requests; }));
      server.release();
      for (Pending& task : tasks) {
        const Answer answer = task.get();
        EXPECT_EQ(answer.body(), other.method == "HEAD" && &task == &tasks.back() ? "" : "x");
        EXPECT_EQ(answer.metrics.countOfBytesReceived, static_cast<int>(answer.body().size()));
        EXPECT_EQ(task.task->countOfBytesReceived(), answer.metrics.countOfBytesReceived);
      }
      EXPECT_EQ(server.requests().size(), requests);
    }
  }
}

TEST(SharingTest, whatNoCacheMayKeepIsForOneAndWhatFailsFailsForAll) {
  const std::tuple<const char*, Script, std::size_t, const char*> cases[] = {
      {"no-store", answer("x", "Cache-Control: no-store\r\n"), 4, "x"},
      {"varies", answer("x", "Cache-Control: max-age=60\r\nVary: a, *\r\n"), 4, "x"},
      {"a failing server", answer("x", "", "500 Failure"), 4, "x"},
      {"a lasting refusal", answer("x", "Cache-Control: max-age=9\r\n", "500 Failure"), 1, "x"},
      {"private", answer("x", "Cache-Control: private, max-age=0\r\n"), 1, "x"},
      {"cut",
       {send("HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\nx"), closeConnection()},
       1,
       "failure"},
      {"no answer", {closeConnection()}, 1, "failure"},
  };
  for (const auto& [name, script, requests, outcome] : cases) {
    SCOPED_TRACE(name);
    ScriptedServer server(held(script));
    URLSession session({});
    std::vector<Pending> tasks;
    for (int i = 0; i < 4; ++i) tasks.push_back(start(session, sharing(server.url("/a"))));
    EXPECT_TRUE(pumpUntil([&] { return !server.requests().empty(); }));
    server.release();
    for (Pending& task : tasks) EXPECT_EQ(outcomeOf(task.get()), outcome);
    EXPECT_EQ(server.requests().size(), requests);
  }
}

TEST(SharingTest, cancellingOneLeavesTheOthersAndCancellingAllEndsTheRequest) {
  const std::vector<std::size_t> cancelled[] = {{0}, {1}, {2}, {0, 1}, {1, 2}, {2, 0}, {0, 1, 2}};
  enum Stage { queued, sent, inBody };
  for (const Stage stage : {queued, sent, inBody}) {
    for (const auto& indices : cancelled) {
      SCOPED_TRACE("stage " + std::to_string(stage) + ", " + ::testing::PrintToString(indices));
      ScriptedServer server([&](const Request& request) -> Script {
        if (request.target == "/first") return held(answer("x"));
        Script whole = answer(stage == inBody ? "xx" : "x");
        if (stage != inBody) return held(whole);
        std::string head = whole[0].bytes;
        head.pop_back();
        return {send(head), awaitRelease(), send("x")};
      });
      URLSession session({.httpMaximumConnectionsPerHost = 1});
      std::optional<Pending> before;
      if (stage == queued) before = start(session, URLRequest(server.url("/first")));
      std::vector<Pending> tasks;
      for (int i = 0; i < 3; ++i) tasks.push_back(start(session, sharing(server.url("/a"))));
      EXPECT_TRUE(pumpUntil([&] { return !server.requests().empty(); }));
      if (stage == inBody) {
        EXPECT_TRUE(pumpUntil([&] { return tasks[2].task->countOfBytesReceived() == 1; }));
      }
      for (const std::size_t i : indices) tasks[i].task->cancel();
      for (const std::size_t i : indices) EXPECT_EQ(outcomeOf(tasks[i].get()), "cancelled");
      server.release();
      const std::string body = stage == inBody ? "xx" : "x";
      for (std::size_t i = 0; i < tasks.size(); ++i) {
        if (std::find(indices.begin(), indices.end(), i) != indices.end()) continue;
        EXPECT_EQ(outcomeOf(tasks[i].get()), body);
      }
      if (before) {
        EXPECT_EQ(before->get().body(), "x");
      }
      EXPECT_EQ(outcomeOf(fetch(session, sharing(server.url("/b")))), body);
      const std::size_t sentOnes = stage == queued && indices.size() == 3 ? 0 : 1;
      EXPECT_EQ(server.requests().size(), sentOnes + (before ? 2 : 1));
    }
  }
}

TEST(SharingTest, whatIsSentHasTheHighestPriorityOfThoseThatWaitForIt) {
  ScriptedServer server([](const Request& request) -> Script {
    return request.target == "/first" ? held(answer("x")) : answer("x");
  });
  URLSession session({.httpMaximumConnectionsPerHost = 1});
  std::vector<Pending> tasks;
  const auto add = [&](const char* target, float priority) {
    tasks.push_back(start(session, sharing(server.url(target)), priority));
  };
  add("/first", URLSessionTask::defaultPriority);
  for (const char* target : {"/left", "/raised", "/joined", "/other"}) {
    add(target, URLSessionTask::defaultPriority - 0.01F);
  }
  add("/joined", URLSessionTask::highPriority);
  add("/raised", URLSessionTask::lowPriority);
  tasks.back().task->setPriority(1);
  add("/left", 1);
  tasks.back().task->cancel();
  EXPECT_EQ(tasks.back().get().code(), Code::cancelled);
  server.release();
  tasks.pop_back();
  for (Pending& task : tasks) EXPECT_EQ(task.get().body(), "x");
  std::vector<std::string> order;
  for (const auto& request : server.requests()) order.push_back(request.target);
  EXPECT_EQ(order, (std::vector<std::string>{"/first", "/raised", "/joined", "/left", "/other"}));
}

TEST(SharingTest, anAnswerIsKeptWhenOneOfItsReceiversAcceptsIt) {
  const std::tuple<int, int, bool> cases[] = {{-1, -1, false}, {0, -1, true}, {2, -1, true},
                                              {0, 0, false},   {2, 2, false}, {2, 0, true}};
  for (const auto& [accepting, cancelled, isKept] : cases) {
    ScriptedServer server(held(answer("x", "Cache-Control: max-age=60\r\n")));
    const auto cache = std::make_shared<URLCache>();
    URLSession session({.urlCache = cache});
    std::vector<Pending> tasks;
    for (int i = 0; i < 3; ++i) {
      const bool accepts = i == accepting;
      tasks.push_back(start(session, sharing(server.url("/a")), 0.5F,
                            [accepts](const auto&, const auto&) { return accepts; }));
    }
    EXPECT_TRUE(pumpUntil([&] { return !server.requests().empty(); }));
    if (cancelled >= 0) {
      Pending& task = tasks[static_cast<std::size_t>(cancelled)];
      task.task->cancel();
      EXPECT_EQ(outcomeOf(task.get()), "cancelled");
      tasks.erase(tasks.begin() + cancelled);
    }
    server.release();
    for (Pending& task : tasks) EXPECT_EQ(outcomeOf(task.get()), "x");
    EXPECT_EQ(cache->cachedResponse(URLRequest(server.url("/a"))).has_value(), isKept)
        << accepting << cancelled;
  }
}

// Which of them share, which are cancelled and when is left to chance; each is answered once.
TEST(SharingTest, everyTaskIsAnsweredOnceWhateverIsCancelledWhen) {
  ScriptedServer server([](const Request& request) {
    return answer("x", request.target == "/0" ? "Cache-Control: no-store\r\n"
                                              : "Cache-Control: max-age=0\r\n");
  });
  for (int round = 0; round < soakTimes(10); ++round) {
    std::atomic<int> answers = 0;
    std::atomic<int> right = 0;
    constexpr int threads = 3;
    constexpr int each = 40;
    {
      URLSession session({.urlCache = std::make_shared<URLCache>()});
      std::vector<std::thread> askers;
      for (int thread = 0; thread < threads; ++thread) {
        askers.emplace_back([&, seed = static_cast<unsigned>(round * threads + thread)] {
          std::minstd_rand random(seed);
          std::vector<std::shared_ptr<URLSessionTask>> tasks;
          for (int i = 0; i < each; ++i) {
            const auto completion = [&](const auto& data, const auto&, const auto& error) {
              ++answers;
              if ((data && data->view() == "x") || error->code == Code::cancelled) ++right;
            };
            const URL url = server.url("/" + std::to_string(random() % 3));
            URLSessionTask::Preparation preparation;
            if (random() % 2 == 0) preparation = [](const auto&, const auto&, const auto&) {};
            tasks.push_back(session.dataTask(sharing(url), completion, nullptr, preparation));
            tasks.back()->resume();
            if (random() % 3 == 0) tasks[random() % tasks.size()]->cancel();
          }
        });
      }
      for (std::thread& asker : askers) asker.join();
      if (round % 2 == 0) {
        EXPECT_TRUE(pumpUntil([&] { return answers == threads * each; }));
      }
    }
    EXPECT_EQ(answers, threads * each);
    EXPECT_EQ(right, answers);
  }
}

}  // namespace
}  // namespace paperloom::test
