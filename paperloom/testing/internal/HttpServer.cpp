#include "paperloom/testing/internal/HttpServer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <strings.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>
#include <cerrno>
#include <cstring>
#include <list>
#include <mutex>
#include <system_error>
#include <thread>

#include "paperloom/platform/Date.h"
#include "paperloom/testing/internal/HttpDate.h"
#include "paperloom/testing/internal/SocketStream.h"

namespace paperloom::sample {
namespace {

constexpr std::size_t connectionLimit = 256;
constexpr std::size_t pathLimit = 1024;
constexpr std::size_t bodyLimit = std::size_t{1} << 16;
constexpr std::time_t keepAliveSeconds = 75;

// What the thread's current request needs to carry past httplib's own Request and Response.
struct Exchange {
  std::optional<std::string> acceptEncoding;
  std::chrono::milliseconds delay{0};
  HttpReply::Delivery delivery = HttpReply::Delivery::whole;
  std::size_t cutBodyAt = 0;
  bool withoutBody = false;
  bool thenGoAway = false;
};
thread_local Exchange exchange;

bool namesGzip(const std::string& acceptEncoding) {
  const auto at = acceptEncoding.find("gzip");
  if (at == std::string::npos) return false;
  const std::string rest = acceptEncoding.substr(at + 4, acceptEncoding.find(',', at) - at - 4);
  const auto quality = rest.find("q=");
  return quality == std::string::npos || std::strtod(rest.c_str() + quality + 2, nullptr) > 0;
}

// Leaves httplib no choice of its own: no ranges, and gzip as the one content coding.
void prepare(httplib::Request& request) {
  request.ranges.clear();
  if (request.path.size() > pathLimit) request.path = "/-";  // the routes are regular expressions
  exchange = Exchange();
  if (request.has_header("Accept-Encoding")) {
    exchange.acceptEncoding = request.get_header_value("Accept-Encoding");
    request.headers.erase("Accept-Encoding");
    if (namesGzip(*exchange.acceptEncoding)) request.headers.emplace("Accept-Encoding", "gzip");
  }
}

HttpRequest translate(const httplib::Request& source) {
  HttpRequest request;
  request.method = source.method;
  request.target = source.target;
  request.path = source.path;
  request.query = source.params;
  request.body = source.body;
  request.acceptsGzip = source.has_header("Accept-Encoding");
  for (const auto& [name, value] : source.headers) {
    if (strcasecmp(name.c_str(), "Accept-Encoding") != 0) request.headers.emplace_back(name, value);
  }
  if (exchange.acceptEncoding) {
    request.headers.emplace_back("Accept-Encoding", *exchange.acceptEncoding);
  }
  return request;
}

void answer(const HttpServer::Handler& handler, const httplib::Request& source,
            httplib::Response& target) {
  HttpReply reply = handler(translate(source));
  exchange.delay = reply.delay;
  exchange.delivery = reply.delivery;
  exchange.cutBodyAt = reply.cutBodyAt;
  exchange.withoutBody = reply.status == 204 || reply.status == 304;
  exchange.thenGoAway = reply.thenGoAway;

  target.status = reply.status;
  target.set_header("Date", httpDate(std::chrono::system_clock::to_time_t(currentDate())));
  for (const auto& [name, value] : reply.headers) target.set_header(name, value);
  if (!exchange.withoutBody) {
    target.body = std::move(reply.body);
    if (!target.body.empty()) target.set_header("Content-Type", reply.contentType);
  }
}

// RFC 9110, section 8.6: no Content-Length of 0 where the missing body is none of zero bytes.
void adjustHeader(std::string& reply) {
  constexpr std::string_view zeroLength = "Content-Length: 0\r\n";
  const auto at = reply.find(zeroLength);
  if (exchange.withoutBody && at != std::string::npos) reply.erase(at, zeroLength.size());
  const auto end = reply.find("\r\n\r\n");
  if (exchange.delivery == HttpReply::Delivery::cut && end != std::string::npos &&
      reply.size() - end - 4 > exchange.cutBodyAt) {
    reply.resize(end + 4 + exchange.cutBodyAt);
  }
}

}  // namespace

class HttpServer::Impl final : private httplib::Server {
 public:
  explicit Impl(HttpServer::Handler handler) : handler_(std::move(handler)) {
    const auto route = [this](const httplib::Request& request, httplib::Response& response) {
      answer(handler_, request, response);
    };
    Get(".*", route);
    Post(".*", route);
    Put(".*", route);
    Patch(".*", route);
    Delete(".*", route);
    Options(".*", route);
    set_payload_max_length(bodyLimit);
    set_keep_alive_timeout(keepAliveSeconds);
    set_keep_alive_max_count(1'000'000);
  }

  ~Impl() override {
    stopAll();
    if (wake_ >= 0) ::close(wake_);
  }

  std::optional<std::string> openPort(int port);
  void start() {
    readOneRequestAhead();
    acceptor_ = std::thread([this] { acceptConnections(); });
  }
  int boundPort() const { return port_; }
  void stopAll();

 private:
  struct Connection {
    int socket = -1;
    bool finished = false;
    std::thread thread;
  };

  void readOneRequestAhead();
  void acceptConnections();
  void addConnection(int socket);
  void serveConnection(Connection& connection);
  bool serveRequest(SocketStream& stream);
  void goAway();
  void reap(bool all);
  void wakeAcceptor() const;

  const HttpServer::Handler handler_;
  int port_ = 0;
  int wake_ = -1;
  std::thread acceptor_;
  std::mutex stopMutex_;

  std::mutex mutex_;  // guards what follows
  int listener_ = -1;
  bool gone_ = false;
  std::list<Connection> connections_;
};

std::optional<std::string> HttpServer::Impl::openPort(int port) {
  const auto failure = [port](const char* what) {
    return std::string(what) + " port " + std::to_string(port) +
           " of 127.0.0.1: " + std::generic_category().message(errno);
  };
  wake_ = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  listener_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  if (wake_ < 0 || listener_ < 0) return failure("cannot make a socket for");

  const int on = 1;
  ::setsockopt(listener_, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  socklen_t size = sizeof address;
  if (::bind(listener_, reinterpret_cast<sockaddr*>(&address), size) != 0 ||
      ::listen(listener_, SOMAXCONN) != 0) {
    return failure("cannot listen on");
  }
  if (::getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &size) != 0) {
    return failure("cannot read the number of");
  }
  port_ = ntohs(address.sin_port);
  return std::nullopt;
}

// The parser makes its tables with the first request it reads. That is done here, before there are
// threads that could be at them together: a race detector does not see into the library.
void HttpServer::Impl::readOneRequestAhead() {
  int ends[2];
  if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) return;
  constexpr std::string_view refused = "GET / HTTP/0.9\r\n\r\n";
  [[maybe_unused]] const auto written = ::write(ends[1], refused.data(), refused.size());
  SocketStream stream(ends[0]);
  bool closing = false;
  process_request(stream, true, closing, prepare);
  ::close(ends[0]);
  ::close(ends[1]);
}

void HttpServer::Impl::wakeAcceptor() const {
  const std::uint64_t one = 1;
  [[maybe_unused]] const auto written = ::write(wake_, &one, sizeof one);
}

void HttpServer::Impl::acceptConnections() {
  while (true) {
    reap(false);
    pollfd entries[] = {{wake_, POLLIN, 0}, {-1, POLLIN, 0}};
    {
      const std::lock_guard lock(mutex_);
      if (gone_) return;
      if (connections_.size() < connectionLimit) entries[1].fd = listener_;
    }
    if (::poll(entries, 2, -1) < 0 && errno != EINTR) return;
    std::uint64_t count = 0;
    [[maybe_unused]] const auto read = ::read(wake_, &count, sizeof count);
    if ((entries[1].revents & POLLIN) == 0) continue;

    const int socket = ::accept4(entries[1].fd, nullptr, nullptr, SOCK_CLOEXEC);
    if (socket >= 0) {
      addConnection(socket);
    } else if (errno == EMFILE || errno == ENFILE) {
      ::poll(entries, 1, 50);  // until a descriptor is free again
    }
  }
}

void HttpServer::Impl::addConnection(int socket) {
  const int on = 1;
  ::setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  const timeval sendLimit{10, 0};
  ::setsockopt(socket, SOL_SOCKET, SO_SNDTIMEO, &sendLimit, sizeof sendLimit);

  const std::lock_guard lock(mutex_);
  if (gone_) {
    ::close(socket);
    return;
  }
  Connection& connection = connections_.emplace_back();
  connection.socket = socket;
  try {
    connection.thread = std::thread([this, &connection] { serveConnection(connection); });
  } catch (const std::system_error&) {
    ::close(socket);
    connections_.pop_back();
  }
}

void HttpServer::Impl::serveConnection(Connection& connection) {
  {
    SocketStream stream(connection.socket);
    try {
      while (stream.waitForInput(std::chrono::seconds(keepAliveSeconds)) && serveRequest(stream)) {
      }
    } catch (const std::exception&) {
      // Out of memory: this client's connection closes, the others go on.
    }
  }
  const std::lock_guard lock(mutex_);
  ::close(connection.socket);
  connection.socket = -1;
  connection.finished = true;
  wakeAcceptor();
}

bool HttpServer::Impl::serveRequest(SocketStream& stream) {
  exchange = Exchange();
  bool closing = false;
  const bool served = process_request(stream, false, closing, prepare);
  if (stream.output().empty()) return false;

  const bool waited = stream.pause(exchange.delay);
  if (exchange.delivery == HttpReply::Delivery::silent) {
    stream.pause(std::chrono::milliseconds(-1));
    return false;
  }
  if (exchange.thenGoAway) goAway();
  if (!waited || exchange.delivery == HttpReply::Delivery::hangUp) return false;
  adjustHeader(stream.output());
  const bool whole = stream.flush();
  return whole && served && !closing && exchange.delivery == HttpReply::Delivery::whole &&
         !exchange.thenGoAway;
}

// Refuses new connections from this moment on. The connections close by themselves when they see
// the end of their input.
void HttpServer::Impl::goAway() {
  const std::lock_guard lock(mutex_);
  gone_ = true;
  if (listener_ >= 0) ::shutdown(listener_, SHUT_RD);  // closed only when no thread polls it
  for (const Connection& connection : connections_) {
    if (connection.socket >= 0) ::shutdown(connection.socket, SHUT_RD);
  }
  wakeAcceptor();
}

void HttpServer::Impl::reap(bool all) {
  std::list<Connection> finished;
  {
    const std::lock_guard lock(mutex_);
    for (auto entry = connections_.begin(); entry != connections_.end();) {
      const auto next = std::next(entry);
      if (all || entry->finished) finished.splice(finished.end(), connections_, entry);
      entry = next;
    }
    for (const Connection& connection : finished) {
      if (connection.socket >= 0) ::shutdown(connection.socket, SHUT_RDWR);
    }
  }
  for (Connection& connection : finished) connection.thread.join();
}

void HttpServer::Impl::stopAll() {
  const std::lock_guard stopping(stopMutex_);
  goAway();
  if (acceptor_.joinable()) acceptor_.join();
  reap(true);
  const std::lock_guard lock(mutex_);
  if (listener_ >= 0) ::close(listener_);
  listener_ = -1;
}

HttpServer::HttpServer(Handler handler) : impl_(std::make_unique<Impl>(std::move(handler))) {}
HttpServer::~HttpServer() = default;
std::optional<std::string> HttpServer::listen(int port) { return impl_->openPort(port); }
void HttpServer::serve() { impl_->start(); }
int HttpServer::port() const { return impl_->boundPort(); }
void HttpServer::stop() { impl_->stopAll(); }

}  // namespace paperloom::sample
