#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "paperloom/identity/AuthDataCoordinator.h"
#include "paperloom/identity/UserRegistrationDataCoordinator.h"
#include "paperloom/network/AuthSessionManager.h"
#include "paperloom/testing/Captured.h"
#include "paperloom/testing/SampleService.h"
#include "paperloom/testing/TemporaryFolder.h"

namespace paperloom::test {

using Authorisation = std::shared_ptr<const ContentAuthorisationProtocol>;

// A sample service and coordinators over a session with a cache of its own, which gives up on a
// silent service, but not on a slow machine.
class IdentityFixture : public ::testing::Test {
 protected:
  IdentityFixture() {
    auth->setBaseURL(URL::parse(service->identityURL()));
    registration->setBaseURL(URL::parse(service->identityURL()));
  }

  void misbehave(const std::string& faults) {
    service->setFaults(*sample::FaultPlan::parse(faults));
  }

  Authorisation login(const std::string& identifier, const std::string& authKey) {
    const auto answer = captured<RequestResult<Authorisation>>([&](auto done) {
      auth->login(identifier, authKey, AuthenticationLoginCredentialType::emailAndPassword, done);
    });
    return std::get<request::Success<Authorisation>>(answer).item;
  }

  static URLSessionConfiguration configuration(const std::filesystem::path& cache) {
    return {.timeoutIntervalForRequest = std::chrono::seconds(5),
            .urlCache = std::make_shared<URLCache>(1 << 20, 10 << 20, cache)};
  }

  TemporaryFolder folder;
  std::unique_ptr<sample::SampleService> service = std::move(*sample::SampleService::start());
  std::shared_ptr<AuthSessionManager> manager =
      std::make_shared<AuthSessionManager>(configuration(folder.path() / "auth-url-cache"));
  std::shared_ptr<AuthDataCoordinator> auth = std::make_shared<AuthDataCoordinator>(manager);
  std::shared_ptr<UserRegistrationDataCoordinator> registration =
      std::make_shared<UserRegistrationDataCoordinator>(manager);
};

}  // namespace paperloom::test
