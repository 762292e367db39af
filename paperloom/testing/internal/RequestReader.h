#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include "paperloom/testing/internal/HttpServer.h"
#include "paperloom/testing/internal/SocketStream.h"

namespace paperloom::sample {

// A request as it came off the wire (RFC 9112). With a refusal, the status to answer with, the rest
// of it is unread, and the connection of no more use.
struct IncomingRequest {
  HttpRequest request;
  bool closes = false;
  std::optional<int> refusal{};
};

// Reads one request of HTTP/1.0 or 1.1; nothing when the connection ends before its end. The body
// has a length or comes in chunks, and is asked for with "100 Continue" where the client waits for
// that.
std::optional<IncomingRequest> readRequest(SocketStream& stream);

// `text` compressed by gzip.
std::string gzipped(const std::string& text);

}  // namespace paperloom::sample
