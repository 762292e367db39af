#pragma once

#include <curl/curl.h>

#include <chrono>
#include <functional>
#include <optional>
#include <vector>

namespace paperloom::internal {

// libcurl's multi interface over epoll: many transfers, one thread. Everything but wake() belongs
// to the thread that calls turn().
class CurlLoop {
 public:
  using Clock = std::chrono::steady_clock;

  explicit CurlLoop(int maximumConnectionsPerHost);
  ~CurlLoop();
  CurlLoop(const CurlLoop&) = delete;
  CurlLoop& operator=(const CurlLoop&) = delete;

  bool isUsable() const { return usable_; }

  bool add(CURL* handle);
  void remove(CURL* handle);

  struct Finished {
    CURL* handle;
    CURLcode code;
  };
  // Moves every transfer on, waiting until `until` at most for something to happen, and tells which
  // have finished; those are still to be removed. The next call invalidates the list.
  const std::vector<Finished>& turn(Clock::time_point until);

  // Closes the connections; every handle has been removed, and nothing but wake() may follow.
  void end();

  // Ends the wait of turn(), now or the next. From any thread.
  void wake();

 private:
  static int onSocket(CURL* handle, curl_socket_t socket, int what, void* self, void* known);
  static int onTimer(CURLM* multi, long milliseconds, void* self);
  void wait(Clock::time_point until);
  void runTimer();
  void collectFinished();

  CURLM* multi_ = nullptr;
  int epoll_ = -1;
  int event_ = -1;
  bool usable_ = false;
  std::optional<Clock::time_point> timer_;
  std::vector<Finished> finished_;
};

}  // namespace paperloom::internal
