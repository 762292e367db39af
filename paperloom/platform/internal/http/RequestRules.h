#pragma once

#include <optional>

#include "paperloom/platform/URLRequest.h"
#include "paperloom/platform/URLResponse.h"

// What may be sent and where a redirect leads: pure functions, safe on any thread.
namespace paperloom::internal {

URLError makeError(URLError::Code code, std::string description);

// Why the request must not be sent, if so: a URL that is not http or https, has no host, an
// impossible port, credentials, or bytes that are no URL characters (RFC 3986 section 2); a method
// that is no token (RFC 9110 section 9.1) or is CONNECT; a field name that is no token or a field
// value with control characters other than the tab (section 5.5). The text repeats nothing of it.
std::optional<URLError> refusalOf(const URLRequest& request);

// The fields to put on the wire: those of the request but for the ones that frame the message or
// steer the connection (Host, Content-Length, Transfer-Encoding, Connection, Keep-Alive,
// Proxy-Connection, TE, Trailer, Upgrade, Expect), which the session decides itself; and
// Accept-Encoding and User-Agent where the request has none.
HTTPHeaders fieldsToSend(const URLRequest& request);

// How many redirects in a row are followed.
inline constexpr int maximumRedirects = 20;

// Whether an answer of that status leads somewhere else (RFC 9110 section 15.4).
bool isRedirect(int statusCode);

// The request that a redirect answer asks for, or why it is not followed; `request` and `answer`
// are those of one hop. Nothing when the answer leads nowhere and is itself the result.
//
// 301, 302 turn POST into GET, 303 everything but HEAD; then the body and the fields that describe
// it go. A fragment is inherited (RFC 9110 section 10.2.2).
//
// What may be a secret does not leave its origin, which is scheme, host and port: only fields go to
// another that say nothing of the user, so credentials in a field of any name stay behind; and a
// body that would go along, as a password does in a login, makes the redirect itself the result, as
// it is for every request that stays at its origin.
struct RedirectTarget {
  std::optional<URLRequest> request;
  std::optional<URLError> refusal;  // when there is no request
};
std::optional<RedirectTarget> redirectTarget(const URLRequest& request,
                                             const HTTPURLResponse& answer);

}  // namespace paperloom::internal
