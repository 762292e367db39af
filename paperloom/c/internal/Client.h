#pragma once

#include <memory>

#include "paperloom/c/internal/Request.h"
#include "paperloom/c/internal/Warmings.h"
#include "paperloom/c/paperloom.h"
#include "paperloom/identity/AuthDataCoordinator.h"
#include "paperloom/identity/RegistrationCoordinator.h"
#include "paperloom/identity/UserRegistrationDataCoordinator.h"
#include "paperloom/network/DataCoordinator.h"
#include "paperloom/platform/URLSession.h"

namespace paperloom::c {

// How the coordinators of a client are set up.
struct Settings {
  std::optional<URL> contentURL;
  std::optional<URL> identityURL;
  URLSessionConfiguration content;   // with a cache
  URLSessionConfiguration identity;  // with a cache
  void (*keepTokens)(void*, const paperloom_tokens*) = nullptr;
  void* keepUserData = nullptr;
};

// A sentence says what is wrong with the configuration.
tl::expected<Settings, const char*> readSettings(const paperloom_configuration* configuration);

// The identity side of a client. It is shared with the requests under way, which a client that is
// released leaves to their end: an answer may hold the only tokens that still count.
struct Identity {
  explicit Identity(const Settings& settings);

  const bool hasURL;
  std::shared_ptr<AuthDataCoordinatorProtocol> authentication;  // refreshes are kept
  std::shared_ptr<UserRegistrationDataCoordinator> registration;
  RegistrationCoordinator linkedDetails;
};

// The coordinators that a host's requests go to.
struct Client {
  explicit Client(const Settings& settings);
  // Content requests under way are cancelled.
  ~Client();

  const std::shared_ptr<Requests> requests = std::make_shared<Requests>();
  const std::shared_ptr<Identity> identity;
  DataCoordinator content;
  const std::shared_ptr<Warmings> warmings = std::make_shared<Warmings>();
};

}  // namespace paperloom::c

struct paperloom_client : paperloom::c::Client {
  using Client::Client;
};
