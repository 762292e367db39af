#pragma once

#include <chrono>
#include <string_view>

#include "paperloom/testing/internal/HttpServer.h"
#include "paperloom/testing/internal/IdentityStore.h"

namespace paperloom::sample {

// The identity service's HTTP side: reads and checks the bodies, asks the store, writes the
// answers.
class IdentityEndpoints {
 public:
  explicit IdentityEndpoints(std::chrono::milliseconds tokenLifetime) : store_(tokenLifetime) {}

  static bool owns(std::string_view path) { return path.starts_with("/identity/"); }

  HttpReply answer(const HttpRequest& request);

 private:
  HttpReply token(const HttpRequest& request);
  HttpReply refreshToken(const HttpRequest& request);
  HttpReply entitlement(const HttpRequest& request);
  HttpReply registerAccount(const HttpRequest& request);
  HttpReply removeLink(IdentityStore::Link link, const HttpRequest& request);

  IdentityStore store_;
};

}  // namespace paperloom::sample
