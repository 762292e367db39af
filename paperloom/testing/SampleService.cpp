#include "paperloom/testing/SampleService.h"

#include <strings.h>
#include <algorithm>
#include <deque>
#include <exception>
#include <mutex>
#include <optional>
#include <utility>

#include "paperloom/testing/internal/ContentStore.h"
#include "paperloom/testing/internal/HttpServer.h"
#include "paperloom/testing/internal/IdentityEndpoints.h"

namespace paperloom::sample {
namespace {

constexpr std::size_t requestLogLimit = 2'000;

HttpReply plainStatus(int status) {
  HttpReply reply;
  reply.status = status;
  reply.headers = {{"Cache-Control", "no-store"}};
  reply.body = R"({"error": "the service was told to answer )" + std::to_string(status) + "\"}";
  return reply;
}

}  // namespace

std::optional<std::string> ReceivedRequest::header(std::string_view name) const {
  const std::string wanted(name);
  for (const auto& [key, value] : headers) {
    if (strcasecmp(key.c_str(), wanted.c_str()) == 0) return value;
  }
  return std::nullopt;
}

class SampleService::Impl {
 public:
  explicit Impl(const Options& options)
      : identity_(options.tokenLifetime),
        faults_(options.faults),
        server_([this](const HttpRequest& request) { return respond(request); }) {}

  std::optional<std::string> start(int port) {
    if (port < 0 || port > 65535) return "there is no port " + std::to_string(port);
    if (auto failure = server_.listen(port)) return failure;
    content_.emplace(baseURL());
    server_.serve();
    return std::nullopt;
  }

  HttpServer& server() { return server_; }
  std::string baseURL() const { return "http://127.0.0.1:" + std::to_string(server_.port()); }

  void setFaults(FaultPlan faults) {
    const std::lock_guard lock(mutex_);
    faults_ = std::move(faults);
    count_ = 0;
  }

  std::vector<ReceivedRequest> requests() const {
    const std::lock_guard lock(mutex_);
    return {requests_.begin(), requests_.end()};
  }

  void clearRequests() {
    const std::lock_guard lock(mutex_);
    requests_.clear();
  }

 private:
  struct Faults {
    HttpReply::Delivery delivery = HttpReply::Delivery::whole;
    std::chrono::milliseconds delay{0};
    std::optional<int> status;
    std::size_t cutBodyAt = 0;
    bool last = false;
  };

  // Logs the request and draws what is to go wrong with it.
  Faults receive(const HttpRequest& request);
  HttpReply respond(const HttpRequest& request);

  std::optional<ContentStore> content_;  // made before the first request is taken in
  IdentityEndpoints identity_;

  mutable std::mutex mutex_;  // guards what follows
  FaultPlan faults_;
  std::uint64_t count_ = 0;
  std::deque<ReceivedRequest> requests_;

  HttpServer server_;  // last: its threads use all of the above
};

SampleService::Impl::Faults SampleService::Impl::receive(const HttpRequest& request) {
  const auto covers = [&](const std::string& prefix) { return request.path.starts_with(prefix); };
  const std::lock_guard lock(mutex_);
  if (requests_.size() == requestLogLimit) requests_.pop_front();
  requests_.push_back(request);
  const std::uint64_t index = count_++;

  Faults faults;
  faults.delay = faults_.latency;
  if (faults_.goneAfter && index >= *faults_.goneAfter) {
    faults.delivery = HttpReply::Delivery::hangUp;
    faults.last = true;
    return faults;
  }
  faults.last = faults_.goneAfter && index + 1 == *faults_.goneAfter;
  if (std::any_of(faults_.silent.begin(), faults_.silent.end(), covers)) {
    faults.delivery = HttpReply::Delivery::silent;
    return faults;
  }
  const auto cut = std::find_if(faults_.cuts.begin(), faults_.cuts.end(),
                                [&](const FaultPlan::Cut& rule) { return covers(rule.path); });
  if (cut != faults_.cuts.end()) {
    faults.delivery = HttpReply::Delivery::cut;
    faults.cutBodyAt = cut->bytes;
  }
  const auto status =
      std::find_if(faults_.statuses.begin(), faults_.statuses.end(),
                   [&](const FaultPlan::Status& rule) { return covers(rule.path); });
  if (status != faults_.statuses.end()) {
    faults.status = status->status;
  } else if (faults_.fails(index)) {
    faults.status = 503;
  }
  return faults;
}

HttpReply SampleService::Impl::respond(const HttpRequest& request) {
  const Faults faults = receive(request);
  HttpReply reply;
  if (faults.status) {
    reply = plainStatus(*faults.status);
  } else if (faults.delivery != HttpReply::Delivery::silent &&
             faults.delivery != HttpReply::Delivery::hangUp) {
    reply = IdentityEndpoints::owns(request.path) ? identity_.answer(request)
                                                  : content_->answer(request);
  }
  reply.delay += faults.delay;
  reply.thenGoAway = faults.last;
  if (faults.delivery != HttpReply::Delivery::whole) {
    reply.delivery = faults.delivery;
    reply.cutBodyAt = faults.cutBodyAt;
  }
  return reply;
}

tl::expected<std::unique_ptr<SampleService>, std::string> SampleService::start(
    const Options& options) {
  try {
    auto impl = std::make_unique<Impl>(options);
    if (auto failure = impl->start(options.port)) return tl::make_unexpected(std::move(*failure));
    return std::unique_ptr<SampleService>(new SampleService(std::move(impl)));
  } catch (const std::exception& error) {
    return tl::make_unexpected(std::string("cannot start the sample service: ") + error.what());
  }
}

SampleService::SampleService(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}
SampleService::~SampleService() = default;
int SampleService::port() const { return impl_->server().port(); }
std::string SampleService::baseURL() const { return impl_->baseURL(); }
std::string SampleService::identityURL() const { return impl_->baseURL() + "/identity"; }
void SampleService::stop() { impl_->server().stop(); }
void SampleService::setFaults(FaultPlan faults) { impl_->setFaults(std::move(faults)); }
std::vector<ReceivedRequest> SampleService::requests() const { return impl_->requests(); }
void SampleService::clearRequests() { impl_->clearRequests(); }

}  // namespace paperloom::sample
