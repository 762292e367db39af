#pragma once

#include <array>
#include <string_view>

#include "paperloom/platform/HTTPHeaders.h"

// The lists of field names that the rules go by, one place for all of them.
namespace paperloom::internal::fields {

// Those that frame a message or steer a connection (RFC 9110 section 7.6.1, RFC 9112 section 6):
// the session decides them for its requests itself, whatever a caller says.
inline constexpr std::array<std::string_view, 10> decidedBySession{
    "Host", "Content-Length", "Transfer-Encoding", "Connection", "Keep-Alive", "Proxy-Connection",
    "TE",   "Trailer",        "Upgrade",           "Expect"};

// Those that say nothing of the user and may go along with a redirect to another origin. Every
// other one may be a secret: a credential may stand in a field of any name.
inline constexpr std::array<std::string_view, 16> harmlessAcrossOrigins{"Accept",
                                                                        "Accept-Charset",
                                                                        "Accept-Encoding",
                                                                        "Accept-Language",
                                                                        "Cache-Control",
                                                                        "Content-Encoding",
                                                                        "Content-Type",
                                                                        "Content-Language",
                                                                        "If-Match",
                                                                        "If-None-Match",
                                                                        "If-Range",
                                                                        "If-Modified-Since",
                                                                        "If-Unmodified-Since",
                                                                        "Pragma",
                                                                        "Range",
                                                                        "User-Agent"};

// Those that a cache does not keep (RFC 9111 section 3.1, RFC 9110 section 7.6.1), beside the ones
// that Connection lists: they are about the connection, though it may not list them, or for a
// proxy.
inline constexpr std::array<std::string_view, 10> ofConnectionOrProxy{"Connection",
                                                                      "Keep-Alive",
                                                                      "Proxy-Connection",
                                                                      "Transfer-Encoding",
                                                                      "Upgrade",
                                                                      "TE",
                                                                      "Trailer",
                                                                      "Proxy-Authenticate",
                                                                      "Proxy-Authorization",
                                                                      "Proxy-Authentication-Info"};

// Those that describe the stored bytes, which a confirmation does not change (RFC 9111
// section 3.2).
inline constexpr std::array<std::string_view, 7> ofStoredBytes{
    "Content-Encoding", "Content-Length", "Content-MD5", "Content-Range",
    "Content-Digest",   "Repr-Digest",    "ETag"};

// Those that a 304 leaves out, for the caller has them with its representation (RFC 9110
// section 15.4.5).
inline constexpr std::array<std::string_view, 6> ofRepresentation{
    "Content-Type",     "Content-Length", "Content-Encoding",
    "Content-Language", "Content-Range",  "Content-MD5"};

// Those by which a request asks for less than the whole document, or for nothing if the caller has
// it already (RFC 9110 sections 13.1 and 14.2).
inline constexpr std::array<std::string_view, 4> askingForLess{"Range", "If-Range", "If-None-Match",
                                                               "If-Modified-Since"};

// Whether the list has the name, without regard to case (RFC 9110 section 5.1).
template <std::size_t size>
bool has(const std::array<std::string_view, size>& names, std::string_view name) {
  for (const std::string_view one : names) {
    if (equalsIgnoringCase(one, name)) return true;
  }
  return false;
}

}  // namespace paperloom::internal::fields
