// A GET of 20 KB through the session beside a bare curl_easy_perform on a kept connection, one at a
// time and 16 in flight; and warming 500 URLs over one connection beside the bare loop.

#include <benchmark/benchmark.h>

#include <atomic>
#include <cstdlib>
#include <functional>
#include <future>
#include <string>

#include "bench/BareClient.h"
#include "bench/Cores.h"
#include "bench/LoopbackServer.h"
#include "bench/Ratios.h"
#include "paperloom/platform/URLSession.h"

namespace paperloom::bench {
namespace {

constexpr std::size_t bodySize = 20 * 1024;
constexpr int warmedURLs = 500;

const LoopbackServer& server() {
  static const LoopbackServer& server = *new LoopbackServer(bodySize);
  return server;
}

// Runs `count` requests, `width` of them at a time, each started by the completion of another.
class Chain {
 public:
  Chain(URLSession& session, std::function<URL(int)> url)
      : session_(session), url_(std::move(url)) {}

  void run(int count, int width) {
    toStart_ = count;
    toFinish_ = count;
    done_ = std::promise<void>();
    auto done = done_.get_future();
    for (int i = 0; i < width; ++i) startNext();
    done.wait();
  }

 private:
  void startNext() {
    const int index = --toStart_;
    if (index < 0) return;
    session_
        .dataTask(URLRequest(url_(index)),
                  [this](const auto& data, const auto&, const auto&) {
                    if (!data || data->size() != bodySize) std::abort();
                    startNext();
                    if (--toFinish_ == 0) done_.set_value();
                  })
        ->resume();
  }

  URLSession& session_;
  const std::function<URL(int)> url_;
  std::promise<void> done_;
  std::atomic<int> toStart_ = 0;
  std::atomic<int> toFinish_ = 0;
};

URL numbered(int index) { return *URL::parse(server().url() + std::to_string(index)); }

void timed(benchmark::internal::Benchmark* benchmark) { benchmark->UseRealTime(); }

void curlEasy(benchmark::State& state) {
  BareClient client;
  for (auto _ : state) {
    if (client.get(server().url()) != bodySize) state.SkipWithError("wrong size");
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(curlEasy)->Apply(timed);

// The caller waits for each answer, as a program that needs one thing after the other does.
void sessionGetAndWait(benchmark::State& state) {
  URLSession session({});
  Chain chain(session, numbered);
  for (auto _ : state) chain.run(1, 1);
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(sessionGetAndWait)->Apply(timed);

void sessionGet(benchmark::State& state) {
  URLSession session({});
  const int width = static_cast<int>(state.range(0));
  Chain chain(session, numbered);
  constexpr int batch = 256;
  for (auto _ : state) chain.run(batch, width);
  state.SetItemsProcessed(state.iterations() * batch);
}
BENCHMARK(sessionGet)->Arg(1)->Arg(16)->Apply(timed);

void warmBare(benchmark::State& state) {
  BareClient client;
  for (auto _ : state) {
    for (int i = 0; i < warmedURLs; ++i) client.get(server().url() + std::to_string(i));
  }
  state.SetItemsProcessed(state.iterations() * warmedURLs);
}
BENCHMARK(warmBare)->Apply(timed);

// As the warmer does: everything asked for at once, one connection a host.
void warmSession(benchmark::State& state) {
  URLSessionConfiguration configuration;
  configuration.httpMaximumConnectionsPerHost = 1;
  URLSession session(configuration);
  Chain chain(session, numbered);
  for (auto _ : state) chain.run(warmedURLs, warmedURLs);
  state.SetItemsProcessed(state.iterations() * warmedURLs);
}
BENCHMARK(warmSession)->Apply(timed);

}  // namespace
}  // namespace paperloom::bench

int main(int argc, char** argv) {
  using namespace paperloom::bench;
  leaveFirstCoreToServers();
  benchmark::Initialize(&argc, argv);
  BestTimes best(BestTimes::Clock::real);
  benchmark::RunSpecifiedBenchmarks(&best);

  const double bare = best.of("curlEasy");
  constexpr double batch = 256;
  printRatio("session-get/curl-easy", best.of("sessionGet/1") / batch, bare, "<= 1.5");
  printRatio("session-get-and-wait/curl-easy", best.of("sessionGetAndWait"), bare, "<= 1.5");
  printRatio("session-16-in-flight/curl-easy", best.of("sessionGet/16") / batch, bare, "<= 1");
  printRatio("warm-500-urls/curl-easy-loop", best.of("warmSession"), best.of("warmBare"),
             "<= 1.25");
}
