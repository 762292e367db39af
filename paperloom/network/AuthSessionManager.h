#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>

#include "paperloom/network/AuthSessionManagerProtocol.h"
#include "paperloom/platform/Export.h"
#include "paperloom/platform/URLSession.h"

namespace paperloom {

class ClampedTaskCounter;

// The HTTP layer of the identity side. Every answer counts as it is: nothing stored takes the place
// of a failure, and a redirect to another origin is an answer of its own status. Writes the network
// activity indicator directly, on the thread that starts or completes a request. Safe from any
// thread.
class PAPERLOOM_EXPORT AuthSessionManager final : public AuthSessionManagerProtocol {
 public:
  // What the manager without arguments has, for a host to change before it makes its own: a cache
  // of 10 MB in memory and 10 MB on disk below "auth-url-cache"; idle timeout 20 seconds.
  static URLSessionConfiguration defaultConfiguration();

  AuthSessionManager();
  // The same over a session of the host's own making.
  explicit AuthSessionManager(URLSessionConfiguration configuration);
  ~AuthSessionManager() override;

  void getRequest(const URL& url, const std::map<std::string, std::string>& headers,
                  std::function<void(RequestResult<Nothing>)> completion) override;

  // Requests started and not yet completed.
  std::int64_t taskCount() const;
  const URLSession& session() const { return session_; }

 protected:
  // A body that the parser rejects is also noted in the debug log.
  void postData(Data body, const URL& url, ErasedParser parser,
                ErasedCompletion completion) override;

 private:
  void start(URLRequest request, URLSession::Completion completion);

  std::shared_ptr<ClampedTaskCounter> taskCounter_;
  URLSession session_;
};

}  // namespace paperloom
