#include <atomic>
#include <future>

#include "bench/peers/HTTPClient.h"
#include "paperloom/platform/URLSession.h"

namespace paperloom::bench {
namespace {

constexpr std::int64_t capacity = std::int64_t{200} << 20;

class OwnClient : public HTTPClient {
 public:
  explicit OwnClient(URLSessionConfiguration configuration) : session_(std::move(configuration)) {}

  std::size_t get(const std::vector<std::string>& urls, int width) override {
    urls_ = &urls;
    next_ = 0;
    open_ = urls.size();
    bytes_ = 0;
    done_ = std::promise<void>();
    auto done = done_.get_future();
    for (int i = 0; i < width; ++i) startNext();
    done.wait();
    return bytes_;
  }

 private:
  void startNext() {
    const std::size_t index = next_++;
    if (index >= urls_->size()) return;
    session_
        .dataTask(URLRequest(*URL::parse((*urls_)[index])),
                  [this](const auto& data, const auto&, const auto&) {
                    bytes_ += data ? data->size() : 0;
                    startNext();
                    if (--open_ == 0) done_.set_value();
                  })
        ->resume();
  }

  const std::vector<std::string>* urls_ = nullptr;
  std::promise<void> done_;
  std::atomic<std::size_t> next_ = 0;
  std::atomic<std::size_t> open_ = 0;
  std::atomic<std::size_t> bytes_ = 0;
  URLSession session_;
};

}  // namespace

std::unique_ptr<HTTPClient> makeOwnClient(const ClientOptions& options) {
  URLSessionConfiguration configuration;
  configuration.httpMaximumConnectionsPerHost = 16;
  if (!options.cacheFolder.empty()) {
    configuration.urlCache = std::make_shared<URLCache>(options.keepsMemory ? capacity : 0,
                                                        capacity, options.cacheFolder);
  }
  return std::make_unique<OwnClient>(std::move(configuration));
}

}  // namespace paperloom::bench
