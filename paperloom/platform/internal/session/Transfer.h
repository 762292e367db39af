#pragma once

#include <curl/curl.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "paperloom/platform/internal/http/ResponseBody.h"
#include "paperloom/platform/internal/http/ResponseHead.h"
#include "paperloom/platform/internal/session/CurlLoop.h"
#include "paperloom/platform/internal/session/EasyHandles.h"
#include "paperloom/platform/internal/session/TaskCore.h"

namespace paperloom::internal {

// What one request over the network came to. A header without a body's proper end comes with both
// response and error.
struct TransferResult {
  std::optional<HTTPURLResponse> response;
  Data body;
  std::optional<URLError> error;
  bool complete = false;     // the body is known to be whole
  bool multiplexed = false;  // the server speaks HTTP/2
  Date requestTime{};
  Date responseTime{};
};

// One request and its answer over libcurl, redirects not followed. Judges what libcurl lets pass:
// the size and form of the header, the framing of the body, its coding and its size.
//
// A coded body is handed over decoded, without the fields Content-Encoding and Content-Length; a
// coding that the request's own Accept-Encoding may have asked for, and that is not known here, as
// it came. The idle time starts when a connection is looked for, not while one is waited for.
class Transfer {
 public:
  using Clock = std::chrono::steady_clock;

  enum class Connection { kept, fresh };  // whether it may be one that others have used
  // `request` has been found fit to be sent. Counts the bytes of the body in `task`.
  Transfer(EasyHandle handle, CurlLoop& loop, URLRequest request, Connection connection,
           const URLSessionConfiguration& configuration, TaskCore& task);
  ~Transfer();
  Transfer(const Transfer&) = delete;
  Transfer& operator=(const Transfer&) = delete;

  // Whether there is memory to send it.
  bool isSound() const { return handle_.isSound(); }
  CURL* handle() const { return handle_.get(); }

  // `known`: the server has spoken HTTP/2 before. Otherwise the transfer may have to wait for the
  // handshake of another, and that counts as its own.
  void expectHTTP2(bool known);

  // Since when no byte has moved; nothing while no connection has been looked for.
  std::optional<Clock::time_point> idleSince() const { return idleSince_; }

  const URLRequest& request() const { return request_; }
  // Whether all that came had been under way before the request: then that is to be sent again, on
  // a fresh connection. Asked once libcurl has ended the transfer, before finish().
  bool metUnaskedInput(CURLcode code) const;
  // Whether an HTTP/2 connection failed under a request that may be repeated: many share one, and a
  // server that ends it may take answers along that are under way. Asked at the same time.
  bool lostSharedConnection(CURLcode code) const;
  // That of the connection it was sent over, if it is known.
  std::optional<curl_socket_t> socket() const { return socket_; }

  // The handle once more, of a transfer that is over.
  EasyHandle takeHandle() { return std::move(handle_); }

  // Ends the transfer with what libcurl said, or with a reason of the session's own.
  TransferResult finish(CURLcode code);
  TransferResult abandon(URLError error);

 private:
  static std::size_t onHeader(char* bytes, std::size_t, std::size_t size, void* self) noexcept;
  static std::size_t onBody(char* bytes, std::size_t, std::size_t size, void* self) noexcept;
  static int onProgress(void* self, curl_off_t, curl_off_t, curl_off_t, curl_off_t sent) noexcept;
  static int onRequest(void* self, char* remoteAddress, char* localAddress, int remotePort,
                       int localPort) noexcept;
  static int onResolve(void*, void*, void* self) noexcept;
  static curl_socket_t onOpenSocket(void* self, curlsocktype, curl_sockaddr* address) noexcept;

  void setMethod();
  void setFields();
  void setCallbacks();
  bool hasTakenItsShare();
  bool mayUseConnection(const CurlLoop::Ends& ends);
  bool answerWasAskedFor();
  bool moreThanTheHeadWasRead() const;
  bool takeHeaderLine(std::string_view line);
  bool headIsAcceptable();
  bool takeBody(std::string_view bytes);
  bool fail(URLError::Code code, std::string text);
  int maximumRequests() const;
  bool mayShareConnection() const;
  bool answerHasBody() const;
  bool isMultiplexed() const;
  bool bodyIsWhole() const;
  void checkEnd();
  TransferResult result();

  EasyHandle handle_;
  CurlLoop& loop_;
  const URLRequest request_;
  const URLSessionConfiguration& configuration_;
  TaskCore& task_;
  curl_slist* fieldList_ = nullptr;
  const bool callerNamesCodings_;

  ResponseHead head_;
  ResponseHead::Framing framing_;
  ContentCoding coding_ = ContentCoding::identity;
  std::optional<ResponseBody> body_;
  std::optional<URLError> error_;

  bool expectsHTTP2_ = false;
  int requestsSent_ = 0;
  bool openedConnection_ = false;
  bool metUnaskedInput_ = false;
  std::optional<curl_socket_t> socket_;
  std::optional<std::uint64_t> receivedBefore_;  // on it, before the request; in clear text alone
  std::optional<std::uint64_t> unaskedEnd_;      // of what had come over TLS before the request
  curl_off_t bytesSent_ = 0;
  std::optional<Clock::time_point> idleSince_;
  std::uint64_t turn_ = 0;         // of the loop
  std::int64_t effortBefore_ = 0;  // the body's when the turn began
  Date requestTime_{};
  Date responseTime_{};
};

}  // namespace paperloom::internal
