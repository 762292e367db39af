#include "HTTP2Peer.h"

#include <openssl/ssl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <csignal>
#include <memory>

namespace paperloom::servers {
namespace {

constexpr std::size_t prefaceSize = 24;
constexpr std::size_t frameHead = 9;
enum FrameType : std::uint8_t {
  data = 0,
  headers = 1,
  reset = 3,
  settings = 4,
  ping = 6,
  goAway = 7
};
constexpr std::uint8_t acknowledged = 1;
constexpr std::uint8_t endStream = 1;
constexpr std::uint8_t endHeaders = 4;

std::string number(std::uint32_t value, int bytes) {
  std::string text;
  for (int i = bytes - 1; i >= 0; --i) text.push_back(static_cast<char>(value >> (8 * i) & 0xFF));
  return text;
}

std::uint32_t numberAt(std::string_view bytes, std::size_t at, int size) {
  std::uint32_t value = 0;
  for (int i = 0; i < size; ++i) value = value << 8 | static_cast<unsigned char>(bytes[at++]);
  return value;
}

std::string frame(FrameType type, std::uint8_t flags, std::uint32_t stream,
                  std::string_view payload) {
  return number(static_cast<std::uint32_t>(payload.size()), 3)
      .append(number(type, 1))
      .append(number(flags, 1))
      .append(number(stream, 4))
      .append(payload);
}

int chooseHTTP2(SSL*, const unsigned char** chosen, unsigned char* size, const unsigned char*,
                unsigned int, void*) {
  static constexpr unsigned char name[] = {'h', '2'};
  *chosen = name;
  *size = sizeof name;
  return SSL_TLSEXT_ERR_OK;
}

}  // namespace

std::string headersFrame(std::uint32_t stream,
                         const std::vector<std::pair<std::string, std::string>>& fields) {
  std::string block = "\x88";  // ":status: 200" (RFC 7541 appendix A); the others as literals
  for (const auto& [name, value] : fields) {
    block.append(number(0, 1)).append(number(static_cast<std::uint32_t>(name.size()), 1));
    block.append(name).append(number(static_cast<std::uint32_t>(value.size()), 1)).append(value);
  }
  return frame(FrameType::headers, endHeaders, stream, block);
}

std::string dataFrame(std::uint32_t stream, std::string_view bytes, bool endsStream) {
  return frame(FrameType::data, endsStream ? endStream : 0, stream, bytes);
}

std::string resetFrame(std::uint32_t stream, std::uint32_t error) {
  return frame(FrameType::reset, 0, stream, number(error, 4));
}

std::string goAwayFrame(std::uint32_t lastStream, std::uint32_t error) {
  return frame(FrameType::goAway, 0, 0, number(lastStream, 4) + number(error, 4));
}

class HTTP2Peer::Connection {
 public:
  Connection(HTTP2Peer& peer, int socket, int number)
      : peer_(peer),
        socket_(socket),
        number_(number),
        context_(SSL_CTX_new(TLS_server_method()), &SSL_CTX_free) {
    const timeval soon{0, 100'000};
    setsockopt(socket_, SOL_SOCKET, SO_RCVTIMEO, &soon, sizeof soon);
    SSL_CTX_use_certificate_chain_file(context_.get(), peer.identity_.c_str());
    SSL_CTX_use_PrivateKey_file(context_.get(), peer.identity_.c_str(), SSL_FILETYPE_PEM);
    SSL_CTX_set_alpn_select_cb(context_.get(), &chooseHTTP2, nullptr);
    tls_.reset(SSL_new(context_.get()));
    SSL_set_fd(tls_.get(), socket_);
  }
  ~Connection() { close(socket_); }

  void serve() {
    if (!accept() || !read(prefaceSize)) return;
    write(frame(settings, 0, 0, ""));
    while (read(frameHead)) {
      const std::string head = std::exchange(input_, {});
      const std::uint32_t size = numberAt(head, 0, 3);
      if (size > 0 && !read(size)) return;
      const std::string payload = std::exchange(input_, {});
      const auto flags = static_cast<std::uint8_t>(head[4]);
      const auto type = static_cast<std::uint8_t>(head[3]);
      if (type == settings && (flags & acknowledged) == 0) write(frame(settings, 1, 0, ""));
      if (type == ping && (flags & acknowledged) == 0) write(frame(ping, 1, 0, payload));
      if (type == headers && !answer(numberAt(head, 5, 4))) return;
    }
  }

 private:
  bool accept() {
    int done = SSL_accept(tls_.get());
    while (done != 1 && SSL_get_error(tls_.get(), done) == SSL_ERROR_WANT_READ &&
           !peer_.stopping_) {
      done = SSL_accept(tls_.get());
    }
    return done == 1;
  }

  bool answer(std::uint32_t stream) {
    ++peer_.requests_;
    const Reply reply = peer_.handler_({number_, ++index_, stream});
    bool open = reply.frames.empty() || write(reply.frames);
    while (open && !reply.flood.empty() && !peer_.stopping_) open = write(reply.flood);
    return open && !reply.closes;
  }

  bool write(std::string_view bytes) {
    return SSL_write(tls_.get(), bytes.data(), static_cast<int>(bytes.size())) > 0;
  }

  // Exactly `size` bytes, into input_.
  bool read(std::size_t size) {
    input_.resize(size);
    for (std::size_t got = 0; got < size && !peer_.stopping_;) {
      const int more = SSL_read(tls_.get(), input_.data() + got, static_cast<int>(size - got));
      if (more <= 0 && SSL_get_error(tls_.get(), more) != SSL_ERROR_WANT_READ) return false;
      if (more > 0) got += static_cast<std::size_t>(more);
    }
    return !peer_.stopping_;
  }

  HTTP2Peer& peer_;
  const int socket_;
  const int number_;
  int index_ = 0;
  std::string input_;
  std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)> context_;
  std::unique_ptr<SSL, decltype(&SSL_free)> tls_{nullptr, &SSL_free};
};

HTTP2Peer::HTTP2Peer(const std::filesystem::path& identity, Handler handler)
    : identity_(identity), handler_(std::move(handler)) {
  std::signal(SIGPIPE, SIG_IGN);
  acceptor_ = std::thread([this] { acceptAll(); });
}

HTTP2Peer::~HTTP2Peer() {
  stopping_ = true;
  listener_.stop();
  acceptor_.join();
  for (std::thread& thread : threads_) thread.join();
}

void HTTP2Peer::acceptAll() {
  for (int number = 1;; ++number) {
    const int socket = listener_.accept();
    if (socket < 0) return;
    threads_.emplace_back([this, socket, number] { Connection(*this, socket, number).serve(); });
  }
}

}  // namespace paperloom::servers
