#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "paperloom/model/PaperloomError.h"
#include "paperloom/network/ContentSessionManagerProtocol.h"
#include "paperloom/platform/Export.h"
#include "paperloom/platform/Guarded.h"
#include "paperloom/platform/URL.h"

namespace paperloom {

// Removes the sign-in details that a reader has linked to an account. Only an answer of status 200
// is a success; any other fails with networkError "Response code " and the status. Callbacks run on
// the session manager's callback queue. An empty callback drops what it would be told.
//
// Without a base URL a call fails at once, on the caller's thread, with configurationError and its
// own name followed by " - No Base URL"; for texts that are not valid UTF-8 with networkError
// "failed to serialize data into JSON".
class PAPERLOOM_EXPORT RegistrationCoordinatorProtocol {
 public:
  using Success = std::function<void()>;
  using Failure = std::function<void(PaperloomError)>;

  virtual ~RegistrationCoordinatorProtocol() = default;

  // POSTs base URL + "delete/email".
  virtual void deleteEmailDetails(const std::string& token, const std::string& email,
                                  Success success, Failure failure) = 0;
  // POSTs base URL + "delete/facebook".
  virtual void deleteFacebookDetails(const std::string& token, Success success,
                                     Failure failure) = 0;
  // POSTs base URL + "delete/google".
  virtual void deleteGoogleDetails(const std::string& token, Success success, Failure failure) = 0;
};

// Safe from any thread.
class PAPERLOOM_EXPORT RegistrationCoordinator final : public RegistrationCoordinatorProtocol {
 public:
  // The key under which a host records the reader's marketing permission; no request sends it.
  static constexpr std::string_view marketingPermissionGrantedJSONKey =
      "marketingPermissionGranted";

  // The process's instance, over a ContentSessionManager of its own unless another was named.
  static RegistrationCoordinator& shared();
  // As DataCoordinator::configureShared(): false, and no effect, once shared() has been called.
  [[nodiscard]] static bool configureShared(
      std::shared_ptr<ContentSessionManagerProtocol> sessionManager);

  // Without a session manager the program stops.
  explicit RegistrationCoordinator(std::shared_ptr<ContentSessionManagerProtocol> sessionManager);

  void deleteEmailDetails(const std::string& token, const std::string& email, Success success,
                          Failure failure = nullptr) override;
  void deleteFacebookDetails(const std::string& token, Success success,
                             Failure failure = nullptr) override;
  void deleteGoogleDetails(const std::string& token, Success success,
                           Failure failure = nullptr) override;

  // The root of the identity service; none at first.
  std::optional<URL> baseURL() const;
  void setBaseURL(std::optional<URL> url);

 private:
  struct Removal;
  void remove(const Removal& removal, Success success, Failure failure);

  Guarded<std::optional<URL>> baseURL_;
  std::shared_ptr<ContentSessionManagerProtocol> sessionManager_;
};

}  // namespace paperloom
