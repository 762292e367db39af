#include "paperloom/platform/internal/session/CurlLoop.h"

#include <arpa/inet.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <utility>

namespace paperloom::internal {
namespace {

constexpr long maximumTotalConnections = 256;
constexpr long maximumKeptConnections = 64;

int millisecondsUntil(CurlLoop::Clock::time_point until) {
  using std::chrono::milliseconds;
  const auto now = CurlLoop::Clock::now();
  if (until <= now) return 0;  // it may be too far back for a difference
  const auto left = std::chrono::ceil<milliseconds>(until - now);
  return static_cast<int>(std::clamp<std::int64_t>(left.count(), 0, 60'000));
}

void readEnd(const sockaddr_storage& end, std::string& address, int& port) {
  std::array<char, INET6_ADDRSTRLEN> text{};
  if (end.ss_family == AF_INET) {
    const auto& known = reinterpret_cast<const sockaddr_in&>(end);
    inet_ntop(AF_INET, &known.sin_addr, text.data(), text.size());
    port = ntohs(known.sin_port);
  } else if (end.ss_family == AF_INET6) {
    const auto& known = reinterpret_cast<const sockaddr_in6&>(end);
    inet_ntop(AF_INET6, &known.sin6_addr, text.data(), text.size());
    port = ntohs(known.sin6_port);
  }
  address = text.data();
}

CurlLoop::Ends endsOf(curl_socket_t socket) {
  CurlLoop::Ends ends;
  sockaddr_storage end{};
  socklen_t size = sizeof end;
  if (getsockname(socket, reinterpret_cast<sockaddr*>(&end), &size) == 0) {
    readEnd(end, ends.localAddress, ends.localPort);
  }
  size = sizeof end;
  if (getpeername(socket, reinterpret_cast<sockaddr*>(&end), &size) == 0) {
    readEnd(end, ends.remoteAddress, ends.remotePort);
  }
  return ends;
}

}  // namespace

CurlLoop::CurlLoop(int maximumConnectionsPerHost)
    : maximumConnectionsPerHost_(std::max(1, maximumConnectionsPerHost)),
      epoll_(epoll_create1(EPOLL_CLOEXEC)),
      event_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
  if (isUsable()) change(EPOLL_CTL_ADD, event_, EPOLLIN | EPOLLET);  // one thread a wake
}

bool CurlLoop::open() {
  if (isOpen()) return true;
  multi_ = curl_multi_init();
  if (multi_ == nullptr) return false;
  bool isSet = true;
  const auto set = [&](CURLMoption option, auto value) {
    isSet = isSet && curl_multi_setopt(multi_, option, value) == CURLM_OK;
  };
  set(CURLMOPT_SOCKETFUNCTION, &CurlLoop::onSocket);
  set(CURLMOPT_SOCKETDATA, this);
  set(CURLMOPT_TIMERFUNCTION, &CurlLoop::onTimer);
  set(CURLMOPT_TIMERDATA, this);
  set(CURLMOPT_MAX_HOST_CONNECTIONS, maximumConnectionsPerHost_);
  set(CURLMOPT_MAX_TOTAL_CONNECTIONS, maximumTotalConnections);
  set(CURLMOPT_MAXCONNECTS, maximumKeptConnections);
  if (!isSet) end();
  return isSet;
}

CurlLoop::~CurlLoop() {
  end();
  if (epoll_ >= 0) close(epoll_);
  if (event_ >= 0) close(event_);
}

void CurlLoop::end() {
  if (multi_ != nullptr) curl_multi_cleanup(multi_);
  multi_ = nullptr;
}

bool CurlLoop::add(CURL* handle) { return curl_multi_add_handle(multi_, handle) == CURLM_OK; }

void CurlLoop::remove(CURL* handle) {
  std::erase(paused_, handle);
  std::erase_if(failed_, [&](const Finished& one) { return one.handle == handle; });
  curl_multi_remove_handle(multi_, handle);
}

const std::vector<CurlLoop::Finished>& CurlLoop::advance() {
  now_ = Clock::now();
  if (timer_ && *timer_ <= now_) {
    timer_.reset();
    int running = 0;
    curl_multi_socket_action(multi_, CURL_SOCKET_TIMEOUT, 0, &running);
  }
  finished_ = std::exchange(failed_, {});
  if (!isOpen()) return finished_;
  int left = 0;
  while (const CURLMsg* message = curl_multi_info_read(multi_, &left)) {
    if (message->msg == CURLMSG_DONE) {
      finished_.push_back({message->easy_handle, message->data.result});
    }
  }
  return finished_;
}

void CurlLoop::wake() {
  const std::uint64_t one = 1;
  // It can only fail when the counter is full, and then the wait ends anyway.
  [[maybe_unused]] const auto written = write(event_, &one, sizeof one);
}

void CurlLoop::wait(Clock::time_point until, Ready& ready) {
  ready.count = epoll_wait(epoll_, ready.events.data(), static_cast<int>(ready.events.size()),
                           millisecondsUntil(until));
}

void CurlLoop::moveOn(const Ready& ready) {
  ++turn_;
  now_ = Clock::now();
  for (int i = 0; i < ready.count; ++i) {
    const epoll_event& event = ready.events[static_cast<std::size_t>(i)];
    if (event.data.fd == event_) {
      std::uint64_t ignored = 0;
      [[maybe_unused]] const auto size = read(event_, &ignored, sizeof ignored);
      continue;
    }
    const auto known = watched_.find(event.data.fd);
    if (known == watched_.end()) continue;
    known->second.armed = false;
    if ((event.events & EPOLLIN) != 0) known->second.heard = now_;
    if (!known->second.wanted) continue;
    int bits = ((event.events & EPOLLIN) != 0 ? CURL_CSELECT_IN : 0) |
               ((event.events & EPOLLOUT) != 0 ? CURL_CSELECT_OUT : 0);
    if ((event.events & (EPOLLERR | EPOLLHUP)) != 0) bits = 0;  // libcurl looks for itself
    int running = 0;
    curl_multi_socket_action(multi_, event.data.fd, bits, &running);
    const auto still = watched_.find(event.data.fd);
    if (still == watched_.end() || !still->second.wanted || still->second.armed) continue;
    watch(event.data.fd, still->second, still->second.events);
  }
  resumePaused();
}

void CurlLoop::resumePaused() {
  isResuming_ = true;
  for (CURL* handle : std::exchange(paused_, {})) {
    // What libcurl has kept meanwhile goes to its transfer at once.
    const CURLcode code = curl_easy_pause(handle, CURLPAUSE_CONT);
    const bool hasEnded = code == CURLE_BAD_FUNCTION_ARGUMENT;  // and says so itself
    if (code != CURLE_OK && !hasEnded) failed_.push_back({handle, code});
  }
  isResuming_ = false;
}

int CurlLoop::onSocket(CURL*, curl_socket_t socket, int what, void* self, void*) {
  auto& loop = *static_cast<CurlLoop*>(self);
  Watched& watched = loop.watched_[socket];
  if (what == CURL_POLL_REMOVE) {
    watched.wanted = false;
    if (watched.isOurs) return 0;
    // One that libcurl made for itself may be closed without a word.
    loop.change(EPOLL_CTL_DEL, socket, 0);
    loop.watched_.erase(socket);
    return 0;
  }
  const std::uint32_t events = ((what & CURL_POLL_IN) != 0 ? std::uint32_t{EPOLLIN} : 0U) |
                               ((what & CURL_POLL_OUT) != 0 ? std::uint32_t{EPOLLOUT} : 0U);
  watched.wanted = true;
  if (watched.events != events || !watched.armed) loop.watch(socket, watched, events);
  return 0;
}

void CurlLoop::watch(curl_socket_t socket, Watched& watched, std::uint32_t events) {
  change(watched.events == 0 ? EPOLL_CTL_ADD : EPOLL_CTL_MOD, socket, events | EPOLLONESHOT);
  watched.events = events;
  watched.armed = true;
}

// A failure shows as an idle timeout.
void CurlLoop::change(int operation, curl_socket_t socket, std::uint32_t events) {
  epoll_event interest{};
  interest.events = events;
  interest.data.fd = socket;
  epoll_ctl(epoll_, operation, socket, &interest);
}

curl_socket_t CurlLoop::openSocket(const curl_sockaddr& address) {
  const curl_socket_t made =
      socket(address.family, address.socktype | SOCK_CLOEXEC, address.protocol);
  if (made >= 0) watched_[made] = {.isOurs = true};
  return made < 0 ? CURL_SOCKET_BAD : made;
}

int CurlLoop::onCloseSocket(void* self, curl_socket_t socket) noexcept {
  static_cast<CurlLoop*>(self)->watched_.erase(socket);  // epoll forgets it by itself
  return close(socket);
}

std::optional<curl_socket_t> CurlLoop::socketBetween(const Ends& ends) {
  for (auto& [socket, watched] : watched_) {
    if (!watched.isOurs) continue;
    // Before it is connected it has no remote end.
    if (!watched.ends || watched.ends->remotePort == 0) watched.ends = endsOf(socket);
    if (*watched.ends == ends) return socket;
  }
  return std::nullopt;
}

bool CurlLoop::isInUse(curl_socket_t socket) const {
  const auto found = watched_.find(socket);
  return found != watched_.end() && found->second.wanted;
}

void CurlLoop::giveUpIfSilent(curl_socket_t socket, Clock::duration silence) {
  const auto found = watched_.find(socket);
  if (found == watched_.end() || Clock::now() - found->second.heard < silence) return;
  ::shutdown(socket, SHUT_RDWR);  // libcurl, which owns it, finds it ended
}

int CurlLoop::onTimer(CURLM*, long milliseconds, void* self) {
  auto* loop = static_cast<CurlLoop*>(self);
  loop->timer_.reset();
  if (milliseconds >= 0) loop->timer_ = Clock::now() + std::chrono::milliseconds(milliseconds);
  return 0;
}

}  // namespace paperloom::internal
