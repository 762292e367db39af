#pragma once

#include <curl/curl.h>
#include <sys/epoll.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

namespace paperloom::internal {

// libcurl's multi interface over epoll. wait() and wake() need no lock and may run beside
// everything else; all other functions are called by one thread at a time.
class CurlLoop {
 public:
  using Clock = std::chrono::steady_clock;

  explicit CurlLoop(int maximumConnectionsPerHost);
  ~CurlLoop();
  CurlLoop(const CurlLoop&) = delete;
  CurlLoop& operator=(const CurlLoop&) = delete;

  // Whether the system had the descriptors for waiting.
  bool isUsable() const { return epoll_ >= 0 && event_ >= 0; }

  // Makes libcurl's part of it, after prepareLibcurl() and before the first add(); waiting and
  // waking do without. False when there is no memory or no descriptor for it: to be tried again.
  bool open();
  bool isOpen() const { return multi_ != nullptr; }

  bool add(CURL* handle);
  void remove(CURL* handle);

  struct Finished {
    CURL* handle;
    CURLcode code;
  };
  // How libcurl is to open and close its sockets, so that the loop knows them.
  curl_socket_t openSocket(const curl_sockaddr& address);
  static int onCloseSocket(void* self, curl_socket_t socket) noexcept;

  // The two ends of a connection, as libcurl names them.
  struct Ends {
    std::string localAddress;
    std::string remoteAddress;
    int localPort = 0;
    int remotePort = 0;
    bool operator==(const Ends&) const = default;
  };
  // The socket of the connection between them, if it is known.
  std::optional<curl_socket_t> socketBetween(const Ends& ends);
  // Whether libcurl waits for it: a transfer is under way.
  bool isInUse(curl_socket_t socket) const;
  // Ends a connection that nothing has come over for `silence`: libcurl would keep one that several
  // transfers share and give it to the next.
  void giveUpIfSilent(curl_socket_t socket, Clock::duration silence);

  // Starts what has been added and runs the timers that are due, then tells which transfers have
  // finished; those are still to be removed. The next call invalidates the list.
  const std::vector<Finished>& advance();

  // When libcurl wants advance() to be called again if nothing happens before, and when a turn is
  // due then: at once for those that have paused.
  Clock::time_point nextTimer() const { return timer_.value_or(Clock::time_point::max()); }
  Clock::time_point nextTurn() const {
    return paused_.empty() ? nextTimer() : Clock::time_point::min();
  }

  // When the present turn or advance() began: near enough for what is counted in seconds.
  Clock::time_point now() const { return now_; }

  // How often moveOn() has been called. libcurl reads as long as a peer sends; so a transfer that
  // has taken its share of a turn pauses, by CURL_WRITEFUNC_PAUSE and this, until the next.
  std::uint64_t turn() const { return turn_; }
  void pauseForThisTurn(CURL* handle) { paused_.push_back(handle); }
  // While it hands over what came before the pause, which must not be kept any longer.
  bool isResuming() const { return isResuming_; }

  // Waits for sockets until then, or until wake(), and tells which are ready, for moveOn().
  struct Ready {
    std::array<epoll_event, 64> events;
    int count = 0;
  };
  void wait(Clock::time_point until, Ready& ready);
  void moveOn(const Ready& ready);

  // Closes the connections; every handle has been removed, and nothing but wake() may follow.
  void end();

  // Ends the wait, the present one or else the next.
  void wake();

 private:
  // What epoll knows of a socket. It tells of each once and is then to be armed again, so that no
  // two threads are woken for one; and one of ours that libcurl has lost interest in, since its
  // transfer is over, stays known, as its next transfer will most likely ask for the same.
  struct Watched {
    std::uint32_t events = 0;  // none: epoll does not know it
    bool armed = false;
    bool wanted = false;
    bool isOurs = false;
    Clock::time_point heard = Clock::now();  // when bytes last came, or could have
    std::optional<Ends> ends{};              // once it has been asked for
  };
  void watch(curl_socket_t socket, Watched& watched, std::uint32_t events);
  void resumePaused();
  void change(int operation, curl_socket_t socket, std::uint32_t events);

  static int onSocket(CURL* handle, curl_socket_t socket, int what, void* self, void*);
  static int onTimer(CURLM* multi, long milliseconds, void* self);

  const long maximumConnectionsPerHost_;
  CURLM* multi_ = nullptr;
  int epoll_ = -1;
  int event_ = -1;
  std::unordered_map<curl_socket_t, Watched> watched_;
  std::optional<Clock::time_point> timer_;
  std::vector<Finished> finished_;
  Clock::time_point now_ = Clock::now();
  std::uint64_t turn_ = 0;
  std::vector<CURL*> paused_;
  bool isResuming_ = false;
  std::vector<Finished> failed_;  // when they were resumed
};

}  // namespace paperloom::internal
