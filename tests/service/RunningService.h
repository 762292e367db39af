#pragma once

#include <memory>
#include <stdexcept>
#include <string>

#include <httplib.h>

#include "paperloom/testing/SampleService.h"

namespace paperloom::sample {

// A service on a port of its own and a plain client for it.
struct RunningService {
  explicit RunningService(const SampleServiceOptions& options = {}) {
    auto started = SampleService::start(options);
    if (!started) throw std::runtime_error(started.error());
    service = std::move(*started);
    client = newClient();
  }

  explicit RunningService(const std::string& faults)
      : RunningService(SampleServiceOptions{.faults = FaultPlan::parse(faults).value()}) {}

  std::unique_ptr<httplib::Client> newClient() const {
    auto made = std::make_unique<httplib::Client>("127.0.0.1", service->port());
    made->set_keep_alive(true);
    made->set_tcp_nodelay(true);
    made->set_read_timeout(30, 0);
    return made;
  }

  // The status, or 0 when no whole answer came.
  int status(const std::string& path, const httplib::Headers& headers = {}) const {
    const auto result = client->Get(path, headers);
    return result ? result->status : 0;
  }

  std::unique_ptr<SampleService> service;
  std::unique_ptr<httplib::Client> client;
};

}  // namespace paperloom::sample
