#pragma once

#include <memory>
#include <stdexcept>
#include <string>
#include <utility>

#include "paperloom/testing/Fetch.h"
#include "paperloom/testing/SampleService.h"

namespace paperloom::test {

// A service on a port of its own and a client for it.
struct RunningService {
  explicit RunningService(const std::string& faults = "")
      : service(std::move(
            *sample::SampleService::start({.faults = sample::FaultPlan::parse(faults).value()}))) {}

  Answer get(const std::string& target, HTTPHeaders headers = {}) {
    URLRequest request(*URL::parse(service->baseURL() + target));
    request.headers = std::move(headers);
    return fetch(session, std::move(request));
  }
  Answer post(const std::string& call, const std::string& body, const char* type) {
    URLRequest request(*URL::parse(service->identityURL() + call));
    request.method = "POST";
    request.headers.add("Content-Type", type);
    request.body = Data(body);
    return fetch(session, std::move(request));
  }

  std::unique_ptr<sample::SampleService> service;
  URLSession session{URLSessionConfiguration{}};
};

}  // namespace paperloom::test
