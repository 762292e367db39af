#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <vector>

#include "paperloom/platform/internal/session/EasyHandles.h"
#include "paperloom/testing/Fetch.h"
#include "paperloom/testing/ScriptedServer.h"
#include "paperloom/testing/TLSServer.h"
#include "paperloom/testing/TemporaryFolder.h"

namespace paperloom::test {
namespace {

using namespace std::chrono_literals;
using Code = URLError::Code;
using Request = ScriptedServer::Request;

TEST(ConnectionTest, aKeptConnectionThatDiedCostsAGETOneRepetitionAndWhatIsNotRepeatedNothing) {
  struct Case {
    const char* method;
    Step death;
    bool everyTime;
    std::optional<Code> error;
    std::size_t requests;  // after the first, which warms the connection
  };
  const auto lost = Code::networkConnectionLost;
  const Case cases[] = {
      {"GET", closeConnection(), false, {}, 2},    {"GET", resetConnection(), false, {}, 2},
      {"HEAD", closeConnection(), false, {}, 2},   {"GET", closeConnection(), true, lost, 2},
      {"POST", closeConnection(), false, {}, 1},   {"POST", resetConnection(), false, {}, 1},
      {"POST", closeConnection(), true, lost, 1},  {"PUT", closeConnection(), false, {}, 1},
      {"DELETE", closeConnection(), false, {}, 1}, {"OPTIONS", closeConnection(), false, {}, 1},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.method);
    ScriptedServer server([&](const Request& request) -> Script {
      if (request.target == "/warm") return answer("warm");
      if (c.everyTime || request.indexOnConnection > 1) return {c.death};
      return answer(request.method == "HEAD" ? "" : "fresh");
    });
    URLSession session({});
    ASSERT_EQ(fetch(session, URLRequest(server.url("/warm"))).body(), "warm");
    URLRequest request(server.url("/"));
    request.method = c.method;
    if (request.method[0] == 'P') request.body = Data("once");
    EXPECT_EQ(fetch(session, request).code(), c.error);
    EXPECT_EQ(server.requests().size() - 1, c.requests);
  }
}

TEST(ConnectionTest, aFreshConnectionThatDiesOrAnAnswerThatBeganIsNotAskedForAgain) {
  for (const char* begun : {"", "HTTP/1.1 200 OK\r\n"}) {
    ScriptedServer server([&](const Request& request) -> Script {
      if (request.target == "/warm") return answer("warm");
      return {send(begun), closeConnection()};
    });
    URLSession session({});
    if (*begun != '\0') fetch(session, URLRequest(server.url("/warm")));
    const auto before = server.requests().size();
    EXPECT_EQ(fetch(session, URLRequest(server.url("/"))).code(), Code::networkConnectionLost);
    EXPECT_EQ(server.requests().size() - before, 1U);
  }
}

// Each of these would be the answer to the next request, and be stored under its URL.
TEST(ConnectionTest, whatComesUnaskedOnAKeptConnectionAnswersNoRequest) {
  const std::string wrong = "HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\nwrong";
  const std::string late = "HTTP/1.1 408 Request Timeout\r\nConnection: close\r\n\r\n";
  const std::string firsts[] = {
      "HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\nfirst",
      "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n5\r\nfirst\r\n0\r\n\r\n",
      "HTTP/1.1 204 No Content\r\n\r\n",
      "HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n",
  };
  const std::vector<Step> unasked[] = {{send(wrong)},
                                       {send(late), closeConnection()},
                                       {send("H")},
                                       {send("\r\n")},
                                       {send(std::string(50'000, 'x'))}};
  for (const std::string& first : firsts) {
    for (const auto& steps : unasked) {
      for (const bool atOnce : {false, true}) {
        SCOPED_TRACE(first + " | " + steps[0].bytes.substr(0, 30) + (atOnce ? " at once" : ""));
        std::atomic<bool> sent = false;
        ScriptedServer server([&](const Request& request) -> Script {
          if (request.target != "/first") return answer("right");
          Script script{send(first + (atOnce ? steps[0].bytes : "")), awaitRelease()};
          if (!atOnce) script.push_back(steps[0]);
          script.push_back(call([&] { sent = true; }));
          script.insert(script.end(), steps.begin() + 1, steps.end());
          return script;
        });
        URLSession session({});
        EXPECT_FALSE(fetch(session, URLRequest(server.url("/first"))).error);
        server.release();
        ASSERT_TRUE(pumpUntil([&] { return sent.load(); }));
        EXPECT_EQ(fetch(session, URLRequest(server.url("/second"))).body(), "right");
        EXPECT_EQ(server.connections(), 2);
        EXPECT_EQ(server.requests().back().connection, 2);
      }
    }
  }
}

TEST(ConnectionTest, overTLSTicketsLeaveAConnectionUsableAndAnUnaskedAnswerDoesNot) {
  using Afterwards = TLSServer::Afterwards;
  const TemporaryFolder folder;
  for (const Afterwards afterwards : {Afterwards::sendTicket, Afterwards::sendAnswer}) {
    TLSServer server(
        {.answer = "HTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\nbody", .afterwards = afterwards});
    server.writeAuthority(folder.path() / "authority.pem");
    URLSession session({.additionalCertificateAuthorities = folder.path() / "authority.pem"});
    for (int i = 0; i < 100; ++i) {
      EXPECT_EQ(fetch(session, URLRequest(server.url())).body(), "body");
      ASSERT_TRUE(pumpUntil([&] { return server.answered() >= server.requests(); }));
    }
    if (afterwards == Afterwards::sendTicket) {
      // A newer libcurl itself leaves a connection on which anything came after the answer.
      EXPECT_LE(server.connections(), internal::offersHTTP2() ? 100 : 1);
      EXPECT_EQ(server.requests(), 100);
    } else {
      EXPECT_EQ(server.connections(), 100);
    }
  }
}

TEST(ConnectionTest, noMoreThanAllowedAreOpenToAHostAndTheyAreKept) {
  for (const int allowed : {1, 3}) {
    ScriptedServer server([](const Request& request) -> Script {
      const bool isLast = std::atoi(request.target.c_str() + 1) % 20 == 19;
      return isLast ? then(answer("x"), closeConnection()) : answer("x");
    });
    URLSession session({.httpMaximumConnectionsPerHost = allowed});
    std::vector<Pending> tasks;
    for (int i = 0; i < 60; ++i) {
      tasks.push_back(start(session, URLRequest(server.url("/" + std::to_string(i)))));
    }
    for (Pending& task : tasks) EXPECT_EQ(task.get().body(), "x");
    EXPECT_LE(server.mostConnections(), allowed);
    EXPECT_LE(server.connections(), allowed + 3);
  }
}

TEST(ConnectionTest, tasksWaitInOrderOfPriorityAndThenOfArrival) {
  ScriptedServer server([](const Request& request) -> Script {
    if (request.target != "/first") return answer("x");
    Script script = answer("x");
    script.insert(script.begin(), awaitRelease());
    return script;
  });
  URLSession session({.httpMaximumConnectionsPerHost = 1});
  std::vector<Pending> tasks;
  const auto add = [&](const char* target, float priority) {
    tasks.push_back(start(session, URLRequest(server.url(target)), priority));
  };
  add("/first", URLSessionTask::defaultPriority);
  add("/low", URLSessionTask::lowPriority);
  add("/cancelled", URLSessionTask::highPriority);
  add("/default", URLSessionTask::defaultPriority);
  add("/high", URLSessionTask::highPriority);
  add("/default2", URLSessionTask::defaultPriority);
  add("/raised", URLSessionTask::lowPriority);
  tasks.back().task->setPriority(1);
  tasks[2].task->cancel();
  EXPECT_EQ(tasks[2].get().code(), Code::cancelled);
  server.release();
  for (std::size_t i = 0; i < tasks.size(); ++i) {
    if (i == 2) continue;
    EXPECT_EQ(tasks[i].get().body(), "x");
  }
  std::vector<std::string> order;
  for (const auto& request : server.requests()) order.push_back(request.target);
  EXPECT_EQ(order, (std::vector<std::string>{"/first", "/raised", "/high", "/default", "/default2",
                                             "/low"}));
}

TEST(TimeoutsTest, silenceEndsARequestAndBytesKeepItAlive) {
  struct Case {
    const char* what;
    Script script;
    std::optional<Code> error;
    int status;
  };
  Script dripping = {send("HTTP/1.1 200 OK\r\nContent-Length: 15\r\n\r\n")};
  Script drippingHeader = {send("HTTP/1.1 200 OK\r\n")};
  for (int i = 0; i < 15; ++i) {
    dripping.push_back(wait(100ms));
    dripping.push_back(send("x"));
    drippingHeader.push_back(wait(100ms));
    drippingHeader.push_back(send("X: y\r\n"));
  }
  drippingHeader.push_back(send("Content-Length: 0\r\n\r\n"));
  const Case cases[] = {
      {"no answer", {hang()}, Code::timedOut, 0},
      {"within the body",
       {send("HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\nabc"), hang()},
       Code::timedOut,
       200},
      {"slow body", dripping, {}, 200},
      {"slow header", drippingHeader, {}, 200},
  };
  URLSession session({.timeoutIntervalForRequest = 1200ms});
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    ScriptedServer server(
        [&](const Request& request) { return request.target == "/" ? c.script : answer("x"); });
    EXPECT_EQ(fetch(session, URLRequest(server.url("/before"))).body(), "x");
    const Answer received = fetch(session, URLRequest(server.url()));
    EXPECT_EQ(received.code(), c.error);
    EXPECT_EQ(received.errorText(), c.error ? "the request timed out" : "no error");
    EXPECT_EQ(received.status(), c.status);
    EXPECT_EQ(received.data.has_value(), !c.error);
    // A connection that has gone silent is given up.
    EXPECT_EQ(fetch(session, URLRequest(server.url("/after"))).body(), "x");
    EXPECT_EQ(server.requests().back().connection, c.error ? 2 : 1);
  }
}

TEST(TimeoutsTest, oneThatTricklesEndsByTheLimitOnTheWholeAndWaitingCountsForThatAlone) {
  Script trickle = {send("HTTP/1.1 200 OK\r\nContent-Length: 1000\r\n\r\n")};
  for (int i = 0; i < 200; ++i) {
    trickle.push_back(send("x"));
    trickle.push_back(wait(20ms));
  }
  ScriptedServer server(trickle);
  URLSession session({.timeoutIntervalForRequest = 1500ms,
                      .timeoutIntervalForResource = 3000ms,
                      .httpMaximumConnectionsPerHost = 1});
  Pending trickling = start(session, URLRequest(server.url()));
  Pending waiting = start(session, URLRequest(server.url()));
  const Answer first = trickling.get();
  EXPECT_EQ(first.code(), Code::timedOut);
  EXPECT_EQ(first.status(), 200);
  EXPECT_GT(first.metrics.countOfBytesReceived, 10);
  EXPECT_EQ(waiting.get().code(), Code::timedOut);
}

TEST(TimeoutsTest, aSilentServerHoldsUpNobodyElse) {
  ScriptedServer silent({hang()});
  ScriptedServer lively(hangingOnRequest);
  URLSession session({});
  std::vector<Pending> stuck;
  for (int i = 0; i < 6; ++i) stuck.push_back(start(session, URLRequest(silent.url())));
  for (int i = 0; i < 5; ++i) stuck.push_back(start(session, URLRequest(lively.url("/hang"))));
  for (int i = 0; i < 50; ++i) EXPECT_EQ(fetch(session, URLRequest(lively.url())).body(), "x");
  for (Pending& task : stuck) task.task->cancel();
  for (Pending& task : stuck) EXPECT_EQ(task.get().code(), Code::cancelled);
}

TEST(TimeoutsTest, aServerThatNeverStopsMeetsALimitAndHoldsUpNobodyElse) {
  const std::string ok = "HTTP/1.1 200 OK\r\n";
  const std::string chunked = ok + "Transfer-Encoding: chunked\r\n\r\n";
  const std::string gzip = ok + "Content-Encoding: gzip\r\n\r\n";
  const std::string emptyMember("\x1f\x8b\x08\0\0\0\0\0\0\x03\x03\0\0\0\0\0\0\0\0\0", 20);
  struct Case {
    const char* what;
    std::string begin;
    std::string endless;
    Code error;
  };
  const auto bad = Code::badServerResponse;
  const auto large = Code::dataLengthExceedsMaximum;
  const Case cases[] = {
      {"interim answers", "", "HTTP/1.1 100 Continue\r\n\r\n", bad},
      {"fields", ok, "A: b\r\n", bad},
      {"a line", ok + "A: ", "b", bad},
      {"empty lines", "", "\r\n", bad},
      {"a body", ok + "\r\n", "b", large},
      {"chunks of a byte", chunked, "1\r\nb\r\n", large},
      {"an extension", chunked + "1;", "x", bad},
      {"extensions", chunked, "1;xxxxxxxx\r\nb\r\n", bad},
      {"trailers", chunked + "0\r\n", "A: b\r\n", bad},
      {"gzip members without content", gzip, emptyMember, large},
      {"deflate blocks without content", ok + "Content-Encoding: deflate\r\n\r\n\x78\x9c",
       std::string("\0\0\0\xff\xff", 5), large},
  };
  ScriptedServer lively(answer("x"));
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    ScriptedServer server({send(c.begin), flood(c.endless)});
    URLSession session({.maximumBodySize = 50'000});
    std::vector<Pending> flooded;
    for (int i = 0; i < 2; ++i) flooded.push_back(start(session, URLRequest(server.url())));
    for (int i = 0; i < 10; ++i) EXPECT_EQ(fetch(session, URLRequest(lively.url())).body(), "x");
    for (Pending& task : flooded) EXPECT_EQ(task.get().code(), c.error);
  }
}

}  // namespace
}  // namespace paperloom::test
