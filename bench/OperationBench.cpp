#include <benchmark/benchmark.h>
#include <curl/curl.h>

#include <atomic>
#include <condition_variable>
#include <cstdio>
#include <deque>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "bench/LoopbackServer.h"
#include "bench/Ratios.h"
#include "paperloom/identity/AuthDataCoordinator.h"
#include "paperloom/network/AuthSessionManager.h"
#include "paperloom/operations/AsynchronousOperation.h"
#include "paperloom/platform/OperationQueue.h"
#include "paperloom/testing/SampleService.h"

namespace paperloom::bench {
namespace {

constexpr int threads = 2;
constexpr int batch = 10'000;

std::atomic<std::int64_t> worked{0};

class PlainOperation final : public Operation {
 public:
  void main() override { ++worked; }
};

class AnsweredOperation final : public AsynchronousOperation {
 public:
  void main() override {
    ++worked;
    setState(State::finished);
  }
};

// As little as a pool of threads can be.
class BarePool {
 public:
  BarePool() {
    for (int i = 0; i < threads; ++i) threads_.emplace_back([this] { work(); });
  }
  ~BarePool() {
    {
      const std::lock_guard lock(mutex_);
      stops_ = true;
    }
    came_.notify_all();
    for (auto& thread : threads_) thread.join();
  }

  void add(std::function<void()> task) {
    {
      const std::lock_guard lock(mutex_);
      tasks_.push_back(std::move(task));
      ++unfinished_;
    }
    came_.notify_one();
  }
  void waitUntilEmpty() {
    std::unique_lock lock(mutex_);
    empty_.wait(lock, [this] { return unfinished_ == 0; });
  }

 private:
  void work() {
    std::unique_lock lock(mutex_);
    while (true) {
      came_.wait(lock, [this] { return stops_ || !tasks_.empty(); });
      if (tasks_.empty()) return;
      const auto task = std::move(tasks_.front());
      tasks_.pop_front();
      lock.unlock();
      task();
      lock.lock();
      if (--unfinished_ == 0) empty_.notify_all();
    }
  }

  std::mutex mutex_;
  std::condition_variable came_;
  std::condition_variable empty_;
  std::deque<std::function<void()>> tasks_;
  int unfinished_ = 0;
  bool stops_ = false;
  std::vector<std::thread> threads_;
};

void barePool(benchmark::State& state) {
  BarePool pool;
  for ([[maybe_unused]] auto _ : state) {
    for (int i = 0; i < batch; ++i) {
      pool.add([counted = std::make_shared<int>(1)] { worked += *counted; });
    }
    pool.waitUntilEmpty();
  }
  state.SetItemsProcessed(state.iterations() * batch);
}

template <class SomeOperation>
void operationQueue(benchmark::State& state) {
  OperationQueue queue;
  queue.setMaxConcurrentOperationCount(threads);
  for ([[maybe_unused]] auto _ : state) {
    for (int i = 0; i < batch; ++i) queue.addOperation(std::make_shared<SomeOperation>());
    queue.waitUntilAllOperationsAreFinished();
  }
  state.SetItemsProcessed(state.iterations() * batch);
}

// One operation's life without a queue: nothing but its state and, with an observer, what it
// announces.
void startByHand(benchmark::State& state) {
  const auto observer = std::make_shared<OperationObserver>();
  for ([[maybe_unused]] auto _ : state) {
    const auto operation = std::make_shared<AnsweredOperation>();
    if (state.range(0) != 0) operation->addObserver(observer);
    operation->start();
    benchmark::DoNotOptimize(operation->isFinished());
  }
}

const std::string& sampleService() {
  static auto& service = *std::move(*sample::SampleService::start()).release();
  static const std::string url = service.identityURL() + "/";
  return url;
}

// Answers without doing anything, so that the whole round trip is the client's.
const std::string& instantServer() {
  static LoopbackServer& server =
      *new LoopbackServer(R"({"accessToken":"access","refreshToken":"refresh","idToken":"id"})",
                          "Cache-Control: no-store\r\n", "\n}");
  return server.url();
}

constexpr const char* identifier = "premium@lantern.example";
constexpr const char* authKey = "lighthouse-7";

void login(benchmark::State& state, const std::string& (*baseURL)()) {
  AuthDataCoordinator coordinator(std::make_shared<AuthSessionManager>(URLSessionConfiguration{}));
  coordinator.setBaseURL(URL::parse(baseURL()));
  for ([[maybe_unused]] auto _ : state) {
    std::promise<bool> answer;
    coordinator.login(identifier, authKey, AuthenticationLoginCredentialType::emailAndPassword,
                      [&](const auto& result) { answer.set_value(result.index() == 0); });
    if (!answer.get_future().get()) state.SkipWithError("login failed");
  }
}

void barePost(benchmark::State& state, const std::string& (*baseURL)()) {
  const std::string url = baseURL() + "token";
  const std::string body = std::string("{\n  \"identifier\": \"") + identifier +
                           "\",\n  \"authKey\": \"" + authKey +
                           "\",\n  \"credentialType\": \"EMAIL_PASSWORD\"\n}";
  CURL* curl = curl_easy_init();
  curl_slist* headers = curl_slist_append(nullptr, "Content-Type: application/json");
  curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
  curl_easy_setopt(curl, CURLOPT_HTTPHEADER, headers);
  curl_easy_setopt(curl, CURLOPT_POSTFIELDS, body.c_str());
  const auto take = +[](char* bytes, std::size_t, std::size_t count, void* into) {
    static_cast<std::string*>(into)->append(bytes, count);
    return count;
  };
  curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, take);
  // As the session does, since a POST must not meet a connection that its server is closing.
  curl_easy_setopt(curl, CURLOPT_FRESH_CONNECT, 1L);
  for ([[maybe_unused]] auto _ : state) {
    std::string answer;
    curl_easy_setopt(curl, CURLOPT_WRITEDATA, &answer);
    long status = 0;
    curl_easy_perform(curl);
    curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &status);
    if (status != 200 || answer.empty()) state.SkipWithError("the POST failed");
  }
  curl_slist_free_all(headers);
  curl_easy_cleanup(curl);
}

BENCHMARK(barePool)->UseRealTime();
BENCHMARK_TEMPLATE(operationQueue, PlainOperation)->UseRealTime();
BENCHMARK_TEMPLATE(operationQueue, AnsweredOperation)->UseRealTime();
BENCHMARK(startByHand)->ArgName("observers")->Arg(0)->Arg(1);
BENCHMARK_CAPTURE(barePost, service, sampleService)->UseRealTime();
BENCHMARK_CAPTURE(login, service, sampleService)->UseRealTime();
BENCHMARK_CAPTURE(barePost, instant, instantServer)->UseRealTime();
BENCHMARK_CAPTURE(login, instant, instantServer)->UseRealTime();

}  // namespace
}  // namespace paperloom::bench

int main(int argc, char** argv) {
  using namespace paperloom::bench;
  benchmark::Initialize(&argc, argv);
  BestTimes times(BestTimes::Clock::real);
  benchmark::RunSpecifiedBenchmarks(&times);
  const double plain = times.of("operationQueue<PlainOperation>");
  const double alone = times.of("startByHand/observers:0");
  const double observed = times.of("startByHand/observers:1");
  std::printf("operations through the queue: %.0f a second; bare pool: %.0f a second\n",
              batch / plain, batch / times.of("barePool"));
  std::printf("announcements to one observer: %.0f ns an operation, %.1f %% of its way\n",
              1e9 * (observed - alone), 100 * (observed - alone) / (plain / batch));
  printRatio("operation-queue/bare-pool", plain, times.of("barePool"), "for information");
  printRatio("asynchronous-operation/plain", times.of("operationQueue<AnsweredOperation>"), plain,
             "for information");
  printRatio("login/bare-post", times.of("login/service"), times.of("barePost/service"), "<= 1.5");
  printRatio("login/bare-post-instant-server", times.of("login/instant"),
             times.of("barePost/instant"), "for information");
}
