#include "Places.h"

#include <chrono>
#include <thread>
#include <vector>

#include "paperloom/testing/Fetch.h"

namespace paperloom::servers {
namespace {

using namespace std::chrono_literals;
using test::Answer;
using test::fetch;
using test::Pending;
using test::start;
using Code = URLError::Code;

constexpr auto keepAlive = 1000ms;  // of each server, in its configuration

std::string outOf(int some, int all) { return std::to_string(some) + " of " + std::to_string(all); }

std::string reasonOf(const Answer& answer) {
  if (answer.error) return answer.error->localizedDescription;
  return answer.response ? "status " + std::to_string(answer.status()) : "no answer";
}

// Counts answers that are not what they must be, and remembers why the last of them was not.
struct Losses {
  void note(const Answer& answer, const std::string& body) {
    ++all;
    if (answer.status() == 200 && answer.body() == body) return;
    ++lost;
    reason = " (" + reasonOf(answer) + ")";
  }
  std::string text() const { return outOf(lost, all) + " lost" + reason; }
  int all = 0;
  int lost = 0;
  std::string reason{};
};

URLRequest post(URL url, const std::string& body) {
  URLRequest request(std::move(url));
  request.method = "POST";
  request.body = Data(body);
  return request;
}

void speaksWhatItMay(const Place& place, Report& report) {
  URLSession session(place.configuration());
  const Answer answer = fetch(session, URLRequest(place.url("/whole/x")));
  const auto field = answer.response ? answer.response->headers.first("X-Protocol") : std::nullopt;
  const std::string spoken(field.value_or(reasonOf(answer)));
  const bool expected = place.speaksHTTP2 && offersHTTP2();
  report.expect(place.name, "HTTP/2 only with a libcurl that is fit for it",
                spoken.starts_with(expected ? "HTTP/2" : "HTTP/1"), spoken);

  URLSession strange({});
  const Answer refused = fetch(strange, URLRequest(place.url("/whole/x")));
  report.expect(place.name, "the private authority is trusted only by configuration",
                refused.code() == Code::secureConnectionFailed,
                refused.error ? "refused" : reasonOf(refused));
}

// Each connection takes ten requests, and the server takes its configuration anew meanwhile.
void losesNoGET(const Place& place, Report& report) {
  auto configuration = place.configuration();
  configuration.urlCache = memoryCache();
  URLSession session(configuration);
  constexpr int count = 600;
  std::vector<std::pair<std::string, Pending>> tasks;
  for (int i = 0; i < count; ++i) {
    const std::string target = "/whole/" + std::to_string(i);
    tasks.emplace_back(target, start(session, URLRequest(place.url(target))));
  }
  Losses losses;
  int stored = 0;
  for (auto& [target, task] : tasks) {
    losses.note(task.get(), wholeBody(target));
    const auto kept = configuration.urlCache->cachedResponse(URLRequest(place.url(target)));
    if (kept && kept->data.view() == wholeBody(target)) ++stored;
    if (losses.all == count / 3 && place.reload) place.reload();
  }
  report.expect(place.name, "no GET is lost", losses.lost == 0, losses.text());
  report.expect(place.name, "whole answers are stored", stored == count, outOf(stored, count));
}

// Requests that meet the server's closing of a kept connection.
void survivesTheKeepAliveLimit(const Place& place, const char* method, Report& report) {
  Losses losses;
  std::vector<std::unique_ptr<URLSession>> sessions;
  for (int i = 0; i < 8; ++i) {
    sessions.push_back(std::make_unique<URLSession>(place.configuration()));
    fetch(*sessions.back(), URLRequest(place.url("/whole/first")));
  }
  for (int round = 0; round < 5; ++round) {
    std::this_thread::sleep_for(keepAlive - 15ms + round * 5ms);
    std::vector<Pending> tasks;
    for (auto& session : sessions) {
      URLRequest request = post(place.url("/post"), "sent once");
      if (method == std::string("GET")) request = URLRequest(place.url("/whole/y"));
      tasks.push_back(start(*session, request));
      std::this_thread::sleep_for(3ms);
    }
    const std::string body = method == std::string("GET") ? wholeBody("/whole/y") : "sent once";
    for (Pending& task : tasks) losses.note(task.get(), body);
    for (auto& session : sessions) fetch(*session, URLRequest(place.url("/whole/again")));
  }
  report.expect(place.name, std::string(method) + " at the keep-alive limit", losses.lost == 0,
                losses.text());
}

void postsAfterAPause(const Place& place, Report& report) {
  Losses losses;
  std::vector<std::unique_ptr<URLSession>> sessions;
  for (int i = 0; i < 4; ++i) {
    sessions.push_back(std::make_unique<URLSession>(place.configuration()));
    fetch(*sessions.back(), URLRequest(place.url("/whole/first")));
  }
  std::this_thread::sleep_for(keepAlive + 300ms);
  for (auto& session : sessions) {
    for (int i = 0; i < 3; ++i) {
      losses.note(fetch(*session, post(place.url("/post"), "sent once")), "sent once");
    }
  }
  report.expect(place.name, "POST after a pause", losses.lost == 0, losses.text());
}

void storesNothingCut(const Place& place, Report& report) {
  auto configuration = place.configuration();
  configuration.urlCache = memoryCache();
  URLSession session(configuration);
  int stored = 0;
  int passed = 0;
  int count = 0;
  for (const char* target :
       {"/cut/length", "/cut/chunks", "/coded/cut/length", "/coded/cut/chunks"}) {
    for (int i = 0; i < 10; ++i) {
      const URLRequest request(place.url(target + ("?" + std::to_string(i))));
      const Answer answer = fetch(session, request);
      const bool isPage = answer.status() == 502;  // the server's own, of an origin that failed
      ++count;
      if (!answer.error && !isPage) ++passed;
      if (!isPage && configuration.urlCache->cachedResponse(request)) ++stored;
    }
  }
  report.expect(place.name, "no cut body is stored", stored == 0,
                outOf(stored, count) + ", " + std::to_string(passed) + " handed over");
}

// A relay loses all bytes of the present connections: what is under way times out, what follows
// is sent over another.
void givesADeadConnectionUp(const Place& place, Report& report) {
  Relay relay(place.port);
  auto configuration = place.configuration();
  configuration.timeoutIntervalForRequest = 700ms;
  URLSession session(configuration);
  const auto get = [&](int i) {
    return start(session, URLRequest(place.url(relay, "/whole/" + std::to_string(i))));
  };
  get(0).get();
  relay.swallow();
  std::vector<Pending> doomed;
  for (int i = 0; i < 4; ++i) doomed.push_back(get(i));
  int timedOut = 0;
  for (Pending& task : doomed) timedOut += task.get().code() == Code::timedOut ? 1 : 0;
  Losses losses;
  for (int i = 0; i < 4; ++i) losses.note(get(i).get(), wholeBody("/whole/" + std::to_string(i)));
  report.expect(place.name, "a dead connection is given up", losses.lost == 0 && timedOut > 0,
                losses.text() + " after " + std::to_string(timedOut) + " that timed out");
}

void opensOneConnectionForABurst(const Place& place, Report& report) {
  Relay relay(place.port);
  URLSession session(place.configuration());
  std::vector<Pending> burst;
  for (int i = 0; i < 8; ++i) {
    burst.push_back(start(session, URLRequest(place.url(relay, "/whole/burst"))));
  }
  Losses losses;
  for (Pending& task : burst) losses.note(task.get(), wholeBody("/whole/burst"));
  const int most = place.speaksHTTP2 && offersHTTP2() ? 1 : 6;
  report.expect(place.name, "connections for a cold burst of 8: " + std::to_string(most),
                losses.lost == 0 && relay.connections() <= most,
                std::to_string(relay.connections()) + ", " + losses.text());
}

}  // namespace

std::string wholeBody(const std::string& target) {
  std::string body = "{\"" + target + "\":\"";
  while (body.size() < bodySize) body.append(std::to_string(body.size() * 2654435761U));
  return body.append("\"}");
}

test::Script originAnswer(const test::ScriptedServer::Request& request) {
  const std::string type = "Content-Type: application/json\r\n";
  if (request.method == "POST") return test::answer(request.body, type);
  const std::string cached = type + "Cache-Control: max-age=1000\r\n";
  const std::string body = wholeBody(request.target);
  if (!request.target.starts_with("/cut/")) return test::answer(body, cached);
  const std::string half = body.substr(0, body.size() / 2);
  std::string bytes = "HTTP/1.1 200 OK\r\n" + cached;
  if (request.target.starts_with("/cut/length")) {
    bytes.append("Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + half);
  } else {
    char size[16];
    std::snprintf(size, sizeof size, "%zx\r\n", half.size());
    bytes.append("Transfer-Encoding: chunked\r\n\r\n").append(size).append(half + "\r\n");
  }
  // Not with the header, which a server would hold back with the half that it has.
  return {test::send(bytes), test::wait(20ms), test::closeConnection()};
}

void checkPlace(const Place& place, Report& report) {
  speaksWhatItMay(place, report);
  opensOneConnectionForABurst(place, report);
  losesNoGET(place, report);
  storesNothingCut(place, report);
  givesADeadConnectionUp(place, report);
  postsAfterAPause(place, report);
  survivesTheKeepAliveLimit(place, "GET", report);
  survivesTheKeepAliveLimit(place, "POST", report);
}

void checkPatientPlace(const Place& place, Report& report) {
  Relay relay(place.port);
  URLSession session(place.configuration());
  Losses losses;
  for (int i = 0; i < 100; ++i) {
    losses.note(fetch(session, URLRequest(place.url(relay, "/whole/z"))), wholeBody("/whole/z"));
  }
  report.expect(place.name, "connections for 100 GETs in a row: 1",
                losses.lost == 0 && relay.connections() == 1,
                std::to_string(relay.connections()) + ", " + losses.text());
}

}  // namespace paperloom::servers
