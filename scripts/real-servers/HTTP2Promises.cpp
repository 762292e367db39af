#include <chrono>
#include <string>
#include <vector>

#include "HTTP2Peer.h"
#include "Places.h"
#include "paperloom/testing/Fetch.h"

namespace paperloom::servers {
namespace {

using namespace std::chrono_literals;
using test::Answer;
using test::fetch;
using test::start;
using Request = HTTP2Peer::Request;
using Reply = HTTP2Peer::Reply;
using Fields = std::vector<std::pair<std::string, std::string>>;

constexpr std::uint32_t noError = 0;
constexpr std::uint32_t internalError = 2;
constexpr std::uint32_t refusedStream = 7;

const std::string text(1000, 'x');
const std::string gzip = [] {
  static constexpr char bytes[] =
      "\x1f\x8b\x08\x00\x00\x00\x00\x00\x02\x03\xab\xa8\x18\x05\xa3\x60\x14\x0c\x77\x00\x00\xe6\xc9"
      "\x41\x3b\xe8\x03\x00\x00";
  return std::string(bytes, sizeof bytes - 1);
}();

enum class End { stream, streamLater, reset, failure, connection, goAway };

std::string endFrames(End end, std::uint32_t stream) {
  switch (end) {
    case End::streamLater:
      return dataFrame(stream, "", true);
    case End::reset:
      return resetFrame(stream, noError);
    case End::failure:
      return resetFrame(stream, internalError);
    case End::goAway:
      return goAwayFrame(stream, internalError);
    case End::stream:
    case End::connection:
      break;
  }
  return "";
}

enum class Outcome { failed, handedOver, stored };

const char* nameOf(Outcome outcome) {
  switch (outcome) {
    case Outcome::failed:
      return "an error";
    case Outcome::handedOver:
      return "handed over, not stored";
    case Outcome::stored:
      return "stored";
  }
  return "";
}

class Scene {
 public:
  Scene(const std::filesystem::path& identity, const std::filesystem::path& authority,
        Report& report)
      : identity_(identity), authority_(authority), report_(report) {}

  void bodies() const;
  void refusals() const;
  void deadConnection() const;
  void flood() const;

 private:
  URLSessionConfiguration configuration() const {
    URLSessionConfiguration made;
    made.additionalCertificateAuthorities = authority_;
    made.urlCache = memoryCache();
    made.timeoutIntervalForRequest = 2s;
    return made;
  }
  static Reply good(std::uint32_t stream) {
    return {headersFrame(stream, {{"content-length", "1000"}, {"cache-control", "max-age=1000"}}) +
            dataFrame(stream, text, true)};
  }
  void expect(const std::string& promise, bool kept, const std::string& seen) const {
    report_.expect("HTTP/2 peer", promise, kept, seen);
  }

  const std::filesystem::path identity_;
  const std::filesystem::path authority_;
  Report& report_;
};

// What becomes of a body by how it ends, and that of a cut one nothing is stored.
void Scene::bodies() const {
  struct Case {
    const char* what;
    Fields fields;
    std::string body;
    End end;
    Outcome best;   // the most that may become of it
    Outcome worst;  // and the least
  };
  const auto failed = Outcome::failed;
  const auto passed = Outcome::handedOver;
  const auto stored = Outcome::stored;
  const Fields length{{"content-length", "1000"}};
  const Fields coded{{"content-encoding", "gzip"}};
  const std::string half = text.substr(500);
  const std::string halfCoded = gzip.substr(0, gzip.size() / 2);
  const Case cases[] = {
      {"whole, with a length", length, text, End::stream, stored, stored},
      {"whole, with a length, its end apart", length, text, End::streamLater, stored, stored},
      {"whole, coded", coded, gzip, End::stream, stored, stored},
      {"whole, neither", {}, text, End::stream, passed, passed},
      {"empty, neither", {}, "", End::stream, passed, passed},
      {"half, with a length", length, half, End::stream, failed, failed},
      {"half, with a length, RST_STREAM(NO_ERROR)", length, half, End::reset, failed, failed},
      {"half, coded", coded, halfCoded, End::stream, failed, failed},
      {"half, coded, RST_STREAM(NO_ERROR)", coded, halfCoded, End::reset, failed, failed},
      {"half, neither, RST_STREAM(NO_ERROR)", {}, half, End::reset, passed, failed},
      {"half, neither, RST_STREAM(INTERNAL_ERROR)", {}, half, End::failure, failed, failed},
      {"half, neither, the connection ends", {}, half, End::connection, passed, failed},
      {"half, neither, GOAWAY(INTERNAL_ERROR)", {}, half, End::goAway, passed, failed},
  };
  for (const Case& c : cases) {
    HTTP2Peer peer(identity_, [&](const Request& request) -> Reply {
      Fields fields = c.fields;
      fields.emplace_back("cache-control", "max-age=1000");
      const std::uint32_t stream = request.stream;
      return {headersFrame(stream, fields) + dataFrame(stream, c.body, c.end == End::stream) +
                  endFrames(c.end, stream),
              c.end == End::connection || c.end == End::goAway};
    });
    const auto used = configuration();
    URLSession session(used);
    const Answer answer = fetch(session, URLRequest(peer.url()));
    Outcome outcome = answer.error ? failed : passed;
    if (used.urlCache->cachedResponse(URLRequest(peer.url()))) outcome = stored;
    expect(c.what, outcome <= c.best && outcome >= c.worst, nameOf(outcome));
  }
}

// What the server says it has not looked at is sent again.
void Scene::refusals() const {
  for (const bool byGoAway : {true, false}) {
    HTTP2Peer peer(identity_, [&](const Request& request) -> Reply {
      if (request.connection > 1 || request.index == 1) return good(request.stream);
      if (!byGoAway && request.index > 2) return good(request.stream);
      return {byGoAway ? goAwayFrame(request.stream - 2, noError)
                       : resetFrame(request.stream, refusedStream)};
    });
    URLSession session(configuration());
    fetch(session, URLRequest(peer.url()));
    URLRequest again(peer.url());
    again.cachePolicy = URLRequestCachePolicy::reloadIgnoringLocalCacheData;
    const Answer answer = fetch(session, again);
    expect(byGoAway ? "a GET that GOAWAY refused" : "a GET that RST_STREAM(REFUSED_STREAM) refused",
           answer.status() == 200,
           answer.error ? answer.error->localizedDescription : "sent again and answered");
  }
}

void Scene::deadConnection() const {
  HTTP2Peer peer(identity_, [&](const Request& request) -> Reply {
    return request.connection > 1 || request.index == 1 ? good(request.stream) : Reply{};
  });
  auto used = configuration();
  used.urlCache = nullptr;
  used.timeoutIntervalForRequest = 500ms;
  URLSession session(used);
  fetch(session, URLRequest(peer.url()));
  int answered = 0;
  const bool timedOut = fetch(session, URLRequest(peer.url())).error.has_value();
  for (int i = 0; i < 3; ++i) {
    answered += fetch(session, URLRequest(peer.url())).status() == 200 ? 1 : 0;
  }
  expect("a dead connection is given up", timedOut && answered == 3,
         std::to_string(answered) + " of 3 answered after the one that timed out");
}

// Empty DATA frames without end, on one connection, while another server is asked.
void Scene::flood() const {
  HTTP2Peer flooding(identity_, [&](const Request& request) -> Reply {
    return {headersFrame(request.stream, {}), false, dataFrame(request.stream, "")};
  });
  HTTP2Peer other(identity_, [&](const Request& request) { return good(request.stream); });
  auto used = configuration();
  used.urlCache = nullptr;
  used.timeoutIntervalForRequest = 40s;  // until when the flood lasts
  URLSession session(used);
  auto flooded = start(session, URLRequest(flooding.url()));
  std::this_thread::sleep_for(200ms);
  const auto begun = std::chrono::steady_clock::now();
  int answered = 0;
  for (int i = 0; i < 10; ++i) {
    answered += fetch(session, URLRequest(other.url())).status() == 200 ? 1 : 0;
  }
  const auto taken = std::chrono::duration_cast<std::chrono::milliseconds>(
      std::chrono::steady_clock::now() - begun);
  flooded.task->cancel();
  expect("a peer with empty DATA frames holds up nobody else", answered == 10 && taken < 20s,
         std::to_string(answered) + " of 10 answered in " + std::to_string(taken.count()) + " ms");
}

}  // namespace

void checkHTTP2(const std::filesystem::path& identity, const std::filesystem::path& authority,
                Report& report) {
  const Scene scene(identity, authority, report);
  scene.bodies();
  scene.refusals();
  scene.deadConnection();
  scene.flood();
}

}  // namespace paperloom::servers
