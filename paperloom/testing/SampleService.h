#pragma once

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include <tl/expected.hpp>

#include "paperloom/testing/FaultPlan.h"
#include "paperloom/testing/ReceivedRequest.h"

namespace paperloom::sample {

struct SampleServiceOptions {
  int port = 0;  // 0: the kernel chooses
  FaultPlan faults = {};
  std::chrono::milliseconds tokenLifetime = std::chrono::hours(1);  // of access tokens
};

// A small newspaper on 127.0.0.1: a real HTTP server with sample news and sample accounts, compiled
// into the program.
//
//   GET  /config, /stream?uids=a,b, /articles/SLUG, /images/FILE
//   POST /identity/token, refreshToken, register/account, delete/email, delete/facebook,
//        delete/google
//   GET  /identity/entitlement
//
// Content carries ETag, Last-Modified and Cache-Control and answers conditional requests. Identity
// answers are never storable. The sample accounts are listed in SampleAccounts.h. Any number of
// services may run in one process; every function may be called from any thread.
class SampleService {
 public:
  using Options = SampleServiceOptions;

  // Starts to listen; the service answers when this returns. A port in use, or one that may not be
  // used, is reported as a sentence.
  static tl::expected<std::unique_ptr<SampleService>, std::string> start(
      const Options& options = Options());

  ~SampleService();
  SampleService(const SampleService&) = delete;
  SampleService& operator=(const SampleService&) = delete;

  int port() const;
  std::string baseURL() const;      // "http://127.0.0.1:PORT"
  std::string identityURL() const;  // "http://127.0.0.1:PORT/identity"

  // Closes the port and every connection, also those with a request in hand, and waits until no
  // thread of the service is left. Further calls do nothing.
  void stop();

  // Replaces the faults from the next request on; the counts behind `failureRate` and `goneAfter`
  // start anew. A service that has gone away stays away.
  void setFaults(FaultPlan faults);

  // The latest requests, up to 2,000, in the order in which they arrived, faulty ones included.
  // Holds what clients sent, secrets too.
  std::vector<ReceivedRequest> requests() const;
  void clearRequests();

 private:
  class Impl;
  explicit SampleService(std::unique_ptr<Impl> impl);
  std::unique_ptr<Impl> impl_;
};

}  // namespace paperloom::sample
