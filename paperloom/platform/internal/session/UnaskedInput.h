#pragma once

#include <cstdint>
#include <optional>

namespace paperloom::internal {

// What has arrived on a kept connection before a request is sent on it. It answers nothing, and a
// server that sends it is out of step: its bytes must not pass for the answer to that request.
//
// Over TLS a look does not tell. Session tickets come when the server likes, in records of the same
// kind as an answer's. Such a connection may be used, and what then comes is an answer only if it
// begins in a record behind those that were there before the request.
struct UnaskedInput {
  enum class Kind {
    none,
    records,  // of TLS; `end` says where the last of them ends
    other,    // the connection is not to be used
  };
  Kind kind = Kind::none;
  std::uint64_t end = 0;  // in bytes since the connection was made
};

// Looks without taking anything.
UnaskedInput lookForInput(int socket, bool overTLS);

// How many bytes have arrived on the socket since its connection was made; nothing where the system
// does not tell.
std::optional<std::uint64_t> bytesReceived(int socket);

// How many of them have been read. OpenSSL reads a record at a time, so after it has handed up the
// first bytes of one, this is where that one ends.
std::optional<std::uint64_t> bytesRead(int socket);

}  // namespace paperloom::internal
