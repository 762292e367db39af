// Who waits for the disk: transfers that need no cache, and the calls that an app makes on the
// thread that draws, on a healthy disk and on one that takes 20 ms for every access.

#include <sys/resource.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "bench/LoopbackServer.h"
#include "bench/Ratios.h"
#include "bench/ScratchFolder.h"
#include "bench/SlowDisk.h"
#include "paperloom/network/ContentSessionManager.h"
#include "paperloom/network/DataCoordinator.h"
#include "paperloom/platform/DispatchQueue.h"
#include "paperloom/platform/URLSession.h"

namespace paperloom::bench {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds delay{20};
constexpr int transfers = 100;
constexpr int lookUpsMeanwhile = 20;
constexpr int calls = 10'000;

std::shared_ptr<URLCache> cacheIn(const ScratchFolder& folder) {
  return std::make_shared<URLCache>(8 << 20, 100 << 20, folder.path / "cache");
}

// One after the other, beside tasks that wait for the disk; in milliseconds.
double timeOfTransfers(const LoopbackServer& server, bool isSlow) {
  const ScratchFolder folder;
  std::optional<SlowDisk> slow;
  if (isSlow) slow.emplace(delay);
  URLSessionConfiguration configuration;
  configuration.urlCache = cacheIn(folder);
  URLSession session(configuration);
  for (int i = 0; i < lookUpsMeanwhile; ++i) {
    session.dataTask(URLRequest(*URL::parse(server.url() + std::to_string(i))), nullptr)->resume();
  }
  const auto begun = Clock::now();
  for (int i = 0; i < transfers; ++i) {
    URLRequest request(*URL::parse(server.url() + "bare/" + std::to_string(i)));
    request.cachePolicy = URLRequestCachePolicy::reloadIgnoringLocalCacheData;
    std::promise<void> done;
    session.dataTask(request, [&](const auto&, const auto&, const auto&) { done.set_value(); })
        ->resume();
    done.get_future().wait();
  }
  return std::chrono::duration<double, std::milli>(Clock::now() - begun).count();
}

// How long each call took, in microseconds. Left out are those in which the thread waited for
// nothing and still lost its processor to another: that says how busy the machine is.
class Calls {
 public:
  template <class Call>
  auto time(const Call& call) {
    ++count_;
    const Timer timer(taken_);
    return call();
  }
  int count() const { return count_; }
  double longest() const { return *std::max_element(taken_.begin(), taken_.end()); }
  double percentile(double part) {
    const auto at = taken_.begin() + static_cast<std::ptrdiff_t>(
                                         static_cast<double>(taken_.size() - 1) * part / 100);
    std::nth_element(taken_.begin(), at, taken_.end());
    return *at;
  }

 private:
  struct Timer {
    explicit Timer(std::vector<double>& times) : taken(times) {}
    ~Timer() {
      const std::chrono::duration<double, std::micro> time = Clock::now() - begun;
      const rusage after = switches();
      const bool waited = after.ru_nvcsw != before.ru_nvcsw;
      if (waited || after.ru_nivcsw == before.ru_nivcsw) taken.push_back(time.count());
    }
    static rusage switches() {
      rusage usage{};
      getrusage(RUSAGE_THREAD, &usage);
      return usage;
    }
    std::vector<double>& taken;
    const rusage before = switches();
    const Clock::time_point begun = Clock::now();
  };
  int count_ = 0;
  std::vector<double> taken_;
};

// What an app calls. On a healthy disk each round is answered before the next, so that the threads
// behind it do not keep the one that calls from running.
Calls makeCalls(const LoopbackServer& server, bool isSlow) {
  const ScratchFolder folder;
  UserDefaults defaults(folder.path / "defaults");
  LatestDateStore dates(defaults);
  std::optional<SlowDisk> slow;
  if (isSlow) slow.emplace(delay);
  Calls all;
  const URL root = *URL::parse(server.url());
  const auto manager =
      all.time([&] { return std::make_shared<ContentSessionManager>(cacheIn(folder)); });
  const auto coordinator =
      all.time([&] { return std::make_unique<DataCoordinator>(manager, dates); });
  for (int i = 0; all.count() < calls; ++i) {
    const URL url = *URL::parse(server.url() + std::to_string(i));
    all.time([&] { coordinator->setBaseURL(root); });
    all.time([&] { coordinator->requestAppMetadata(nullptr); });
    all.time([&] { coordinator->requestStreamForSections({"a"}, nullptr); });
    const auto article = all.time([&] { return coordinator->requestArticle(url, nullptr); });
    const auto image = all.time([&] { return coordinator->requestImageFromURL(url, nullptr); });
    all.time([&] { article->cancel(); });
    all.time([&] { image->cancel(); });
    all.time([&] { DispatchQueue::main().runPending(); });
    while (!isSlow && manager->taskCount() != 0) {
      std::this_thread::sleep_for(std::chrono::microseconds(20));
    }
  }
  return all;
}

void run() {
  SlowDisk::install();
  const LoopbackServer server(2, "Cache-Control: no-store\r\n");
  double healthy = timeOfTransfers(server, false);
  double slowed = timeOfTransfers(server, true);
  for (int i = 0; i < 6; ++i) {
    healthy = std::min(healthy, timeOfTransfers(server, false));
    slowed = std::min(slowed, timeOfTransfers(server, true));
  }
  std::printf("%d transfers: %.1f ms, on a slow disk %.1f ms\n", transfers, healthy, slowed);
  Calls onHealthy = makeCalls(server, false);
  Calls onSlow = makeCalls(server, true);
  std::printf("%d calls: longest %.0f us, on a slow disk %.0f us\n", onHealthy.count(),
              onHealthy.longest(), onSlow.longest());
  printRatio("transfers-slow-disk/healthy-disk", slowed / healthy, "<= 1.2");
  printRatio("calls-slow-disk-longest-milliseconds", onSlow.longest() / 1000, "<= 2");
  printRatio("calls-healthy-disk-99.9-percentile-milliseconds", onHealthy.percentile(99.9) / 1000,
             "< 0.2");
}

}  // namespace
}  // namespace paperloom::bench

int main() { paperloom::bench::run(); }
