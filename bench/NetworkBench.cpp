// A document of 20 KB through the content session manager beside a bare curl_easy_perform on a kept
// connection: one after the other and 16 in flight, with answers that may not be kept and with
// answers that are stored anew each time.

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <semaphore>
#include <string>

#include "bench/BareClient.h"
#include "bench/Cores.h"
#include "bench/LoopbackServer.h"
#include "bench/Ratios.h"
#include "paperloom/network/CacheWarmerSessionManager.h"
#include "paperloom/network/ContentSessionManager.h"
#include "paperloom/platform/DispatchQueue.h"

namespace paperloom::bench {
namespace {

constexpr std::size_t bodySize = 20 * 1024;
constexpr int warmedURLs = 500;

class SizeParser final : public ParserProtocol<std::size_t> {
 public:
  tl::expected<std::size_t, ParserError> parse(const Data& data) const override {
    return data.size();
  }
};

// A manager over a cache in a folder of its own.
class Manager {
 public:
  ~Manager() { std::filesystem::remove_all(folder_); }

  // `width` requests in flight until `count` are answered; each answer asks for the next.
  void get(const std::string& url, int count, int width) {
    url_ = url;
    toStart_ = count;
    toFinish_ = count;
    for (int i = 0; i < width; ++i) startNext();
    done_.acquire();
    DispatchQueue::main().runPending();
  }

 private:
  void startNext() {
    const int index = --toStart_;
    if (index < 0) return;
    manager_.getJSONData<std::size_t>(*URL::parse(url_ + std::to_string(index)), parser_,
                                      [this](Result<std::size_t> size, bool) {
                                        if (!size || *size != bodySize) std::abort();
                                        startNext();
                                        if (--toFinish_ == 0) done_.release();
                                      });
  }

  const std::filesystem::path folder_ =
      std::filesystem::temp_directory_path() / ("paperloom-bench-" + std::to_string(::getpid()));
  const std::shared_ptr<const SizeParser> parser_ = std::make_shared<const SizeParser>();
  std::string url_;
  std::atomic<int> toStart_{0};
  std::atomic<int> toFinish_{0};
  std::binary_semaphore done_{0};
  ContentSessionManager manager_{std::make_shared<URLCache>(
      8 * ContentSessionManager::megabyte, 100 * ContentSessionManager::megabyte, folder_)};
};

constexpr int batch = 64;

void bareCurl(benchmark::State& state) {
  const LoopbackServer server(bodySize, "Cache-Control: no-store\r\n");
  BareClient client;
  for (auto _ : state) {
    for (int i = 0; i < batch; ++i) {
      benchmark::DoNotOptimize(client.get(server.url() + std::to_string(i)));
    }
  }
}
BENCHMARK(bareCurl)->UseRealTime();

void managerGet(benchmark::State& state) {
  const LoopbackServer server(bodySize, "Cache-Control: no-store\r\n");
  Manager manager;
  for (auto _ : state) manager.get(server.url(), batch, static_cast<int>(state.range(0)));
}
BENCHMARK(managerGet)->Arg(1)->Arg(16)->UseRealTime();

// The caller waits for each answer before it asks for the next.
void managerGetAndWait(benchmark::State& state) {
  const LoopbackServer server(bodySize, "Cache-Control: no-store\r\n");
  Manager manager;
  for (auto _ : state) {
    for (int i = 0; i < batch; ++i) manager.get(server.url(), 1, 1);
  }
}
BENCHMARK(managerGetAndWait)->UseRealTime();

void managerGetAndStore(benchmark::State& state) {
  const LoopbackServer server(bodySize, "Cache-Control: max-age=0\r\n");
  Manager manager;
  for (auto _ : state) manager.get(server.url(), batch, 1);
}
BENCHMARK(managerGetAndStore)->UseRealTime();

// A whole front page asked for at once, over one connection, every answer kept on disk.
void warm(benchmark::State& state) {
  const LoopbackServer server(bodySize, "Cache-Control: max-age=600\r\n");
  const std::filesystem::path folder =
      std::filesystem::temp_directory_path() / ("paperloom-warm-" + std::to_string(::getpid()));
  for (auto _ : state) {
    CacheWarmerSessionManager warmer(std::make_shared<URLCache>(
        8 * ContentSessionManager::megabyte, 100 * ContentSessionManager::megabyte, folder));
    std::counting_semaphore<> done(0);
    for (int i = 0; i < warmedURLs; ++i) {
      warmer.saveToCache(*URL::parse(server.url() + std::to_string(i)), true,
                         [&](const CacheWarmerRequestResult&) { done.release(); });
    }
    for (int i = 0; i < warmedURLs; ++i) done.acquire();
  }
  DispatchQueue::main().runPending();
  std::filesystem::remove_all(folder);
}
BENCHMARK(warm)->UseRealTime();

}  // namespace
}  // namespace paperloom::bench

int main(int argc, char** argv) {
  using namespace paperloom::bench;
  leaveFirstCoreToServers();
  benchmark::Initialize(&argc, argv);
  BestTimes best(BestTimes::Clock::real);
  benchmark::RunSpecifiedBenchmarks(&best);

  const double bare = best.of("bareCurl") / batch;
  const auto get = [&](const char* name) { return best.of(name) / batch; };
  printRatio("content-get/curl-easy", get("managerGet/1"), bare, "<= 1.5");
  printRatio("content-get-and-wait/curl-easy", get("managerGetAndWait"), bare, "<= 1.5");
  printRatio("content-16-in-flight/curl-easy", get("managerGet/16"), bare, "<= 1");
  printRatio("content-get-and-store/curl-easy", get("managerGetAndStore"), bare, "for information");
  printRatio("warm-and-store-500-urls/curl-easy", best.of("warm") / warmedURLs, bare,
             "for information");
}
