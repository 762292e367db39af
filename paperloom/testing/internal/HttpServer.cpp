#include "paperloom/testing/internal/HttpServer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>
#include <cerrno>
#include <list>
#include <mutex>
#include <system_error>
#include <thread>

#include "paperloom/platform/Date.h"
#include "paperloom/testing/internal/HttpDate.h"
#include "paperloom/testing/internal/RequestReader.h"
#include "paperloom/testing/internal/SocketStream.h"

namespace paperloom::sample {
namespace {

constexpr std::size_t connectionLimit = 256;
constexpr std::chrono::seconds keepAlive(75);

bool hasBody(int status) { return status != 204 && status != 304; }

// Everything of it: what is cut is cut from this.
std::string written(HttpReply reply, const HttpRequest& request, bool closes) {
  std::string bytes = "HTTP/1.1 " + std::to_string(reply.status) + " \r\n";
  const auto add = [&](std::string_view name, std::string_view value) {
    bytes.append(name).append(": ").append(value).append("\r\n");
  };
  add("Date", httpDate(std::chrono::system_clock::to_time_t(currentDate())));
  for (const auto& [name, value] : reply.headers) add(name, value);
  if (closes) add("Connection", "close");
  if (!hasBody(reply.status)) return bytes.append("\r\n");
  if (!reply.body.empty()) {
    add("Content-Type", reply.contentType);
    if (request.acceptsGzip && reply.contentType == "application/json") {
      reply.body = gzipped(reply.body);
      add("Content-Encoding", "gzip");
    }
  }
  add("Content-Length", std::to_string(reply.body.size()));
  bytes += "\r\n";
  if (request.method != "HEAD") bytes += reply.body;
  return bytes;
}

void cutBody(std::string& bytes, std::size_t at) {
  const auto body = bytes.find("\r\n\r\n") + 4;
  if (bytes.size() - body > at) bytes.resize(body + at);
}

}  // namespace

class HttpServer::Impl {
 public:
  explicit Impl(HttpServer::Handler handler) : handler_(std::move(handler)) {}

  ~Impl() {
    stopAll();
    if (wake_ >= 0) ::close(wake_);
  }

  std::optional<std::string> openPort(int port);
  void start() {
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
      while (stream.waitForInput(keepAlive) && serveRequest(stream)) {
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
  const auto incoming = readRequest(stream);
  if (!incoming) return false;
  const HttpRequest& request = incoming->request;
  HttpReply reply;
  if (incoming->refusal) {
    reply.status = *incoming->refusal;
  } else {
    reply = handler_(request);
  }
  const bool waited = stream.pause(reply.delay);
  if (reply.delivery == HttpReply::Delivery::silent) {
    stream.pause(std::chrono::milliseconds(-1));
    return false;
  }
  const bool ends = reply.thenGoAway || reply.delivery == HttpReply::Delivery::cut ||
                    incoming->refusal.has_value() || incoming->closes;
  if (reply.thenGoAway) goAway();
  if (!waited || reply.delivery == HttpReply::Delivery::hangUp) return false;
  const bool isCut = reply.delivery == HttpReply::Delivery::cut;
  const std::size_t cutBodyAt = reply.cutBodyAt;
  std::string bytes = written(std::move(reply), request, incoming->closes || incoming->refusal);
  if (isCut) cutBody(bytes, cutBodyAt);
  stream.output() = std::move(bytes);
  return stream.flush() && !ends;
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
