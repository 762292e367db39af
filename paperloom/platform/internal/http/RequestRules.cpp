#include "paperloom/platform/internal/http/RequestRules.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "paperloom/Version.h"
#include "paperloom/platform/internal/http/FieldNames.h"
#include "paperloom/platform/internal/http/HTTPFieldSyntax.h"

namespace paperloom::internal {
namespace {

using Code = URLError::Code;

// RFC 9110 section 5.5, where bytes beyond ASCII are allowed though nobody should send them. A line
// break would begin another field, or another request.
bool isFieldValue(std::string_view text) {
  return std::all_of(text.begin(), text.end(), [](char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte == '\t' || (byte >= 0x20 && byte != 0x7F);
  });
}

// RFC 3986 section 2: what is no ASCII has to be percent-encoded.
bool isURLCharacter(char c) { return c > 0x20 && c < 0x7F; }

std::optional<URLError> refusalOf(const URL& url) {
  const std::string& text = url.absoluteString();
  if (!std::all_of(text.begin(), text.end(), isURLCharacter)) {
    return makeError(Code::badURL, "the URL contains characters that no URL may contain");
  }
  const std::string scheme = url.scheme();
  if (scheme != "http" && scheme != "https") {
    return makeError(Code::unsupportedURL, "only http and https URLs can be requested");
  }
  if (url.host().empty()) return makeError(Code::badURL, "the URL names no host");
  if (!url.port()) return makeError(Code::badURL, "the URL's port is out of range");
  // It would end up in logs and in the cache's keys; RFC 9110 section 4.2.4 deprecates it.
  if (url.userInfo()) {
    return makeError(Code::badURL, "a URL with a user name or password is not requested");
  }
  return std::nullopt;
}

// Servers send reference texts with spaces and raw UTF-8 in them; browsers encode those.
std::string encodedReference(std::string_view text) {
  constexpr std::string_view digits = "0123456789ABCDEF";
  std::string encoded;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    const bool bare =
        isURLCharacter(c) && std::string_view("\"<>\\^`{|}").find(c) == std::string_view::npos;
    if (bare) {
      encoded += c;
    } else {
      encoded.append({'%', digits[byte >> 4], digits[byte & 15]});
    }
  }
  return encoded;
}

// RFC 9110 section 15.4: what is about the body goes with it, what may be a secret stays.
HTTPHeaders fieldsForTarget(const HTTPHeaders& fields, bool keepsBody, bool sameOrigin) {
  HTTPHeaders kept;
  for (const auto& [name, value] : fields) {
    const bool describesBody = name.size() > 8 && equalsIgnoringCase(name.substr(0, 8), "Content-");
    if (describesBody && !keepsBody) continue;
    if (sameOrigin || fields::has(fields::harmlessAcrossOrigins, name)) kept.add(name, value);
  }
  return kept;
}

// RFC 9110 sections 15.4.2 to 15.4.4: 303 for every method, 301 and 302 for POST, as everybody
// does; 307 and 308 never.
bool changesToGET(const std::string& method, int statusCode) {
  if (statusCode == 303) return method != "GET" && method != "HEAD";
  return (statusCode == 301 || statusCode == 302) && method == "POST";
}

// RFC 9110 section 10.2.2: a reference without a fragment inherits the request's.
std::optional<URL> targetURL(const URL& from, std::string_view location) {
  auto target = from.resolving(encodedReference(location));
  if (!target || target->fragment()) return target;
  if (const auto fragment = from.fragment()) {
    return URL::parse(target->absoluteString() + "#" + *fragment);
  }
  return target;
}

}  // namespace

URLError makeError(URLError::Code code, std::string description) {
  return URLError{code, std::move(description)};
}

std::optional<URLError> refusalOf(const URLRequest& request) {
  if (auto refusal = refusalOf(request.url)) return refusal;
  // RFC 9110 section 9.3.6: CONNECT makes a tunnel, which is for the session's own use of a proxy.
  if (!isToken(request.method) || request.method == "CONNECT") {
    return makeError(Code::badRequest, "the request method is not valid");
  }
  for (const auto& [name, value] : request.headers) {
    if (!isToken(name)) return makeError(Code::badRequest, "a header field name is not valid");
    if (!isFieldValue(value)) {
      return makeError(Code::badRequest, "a header field value contains control characters");
    }
  }
  return std::nullopt;
}

HTTPHeaders fieldsToSend(const URLRequest& request) {
  HTTPHeaders sent;
  for (const auto& [name, value] : request.headers) {
    if (!fields::has(fields::decidedBySession, name)) sent.add(name, value);
  }
  if (!sent.contains("Accept-Encoding")) {
    // The ranges of an encoded body could not be put together or decoded.
    sent.add("Accept-Encoding", sent.contains("Range") ? "identity" : "gzip, deflate, br");
  }
  if (!sent.contains("User-Agent")) {
    sent.add("User-Agent", "paperloom/" PAPERLOOM_VERSION);
  }
  return sent;
}

bool isRedirect(int statusCode) {
  return statusCode == 301 || statusCode == 302 || statusCode == 303 || statusCode == 307 ||
         statusCode == 308;
}

std::optional<RedirectTarget> redirectTarget(const URLRequest& request,
                                             const HTTPURLResponse& answer) {
  if (!isRedirect(answer.statusCode)) return std::nullopt;
  const auto location = answer.headers.first("Location");
  if (!location || location->empty()) return std::nullopt;
  auto url = targetURL(request.url, *location);
  if (!url) return std::nullopt;  // leads nowhere, so it is itself the answer
  const bool toGET = changesToGET(request.method, answer.statusCode);
  const bool sameOrigin = url->origin() == request.url.origin();
  const bool takesBody = request.body && !request.body->empty() && !toGET;
  if (!sameOrigin && (request.staysAtOrigin || takesBody)) return std::nullopt;

  const auto refused = [](std::string text) {
    return RedirectTarget{std::nullopt, makeError(Code::redirectRefused, std::move(text))};
  };
  if (refusalOf(*url)) return refused("the server redirected to a URL that is not requested");
  // Whoever listens could read what TLS was to hide.
  if (request.url.scheme() == "https" && url->scheme() != "https") {
    return refused("the server redirected from https to http");
  }

  URLRequest next = request;
  next.headers = fieldsForTarget(request.headers, !toGET, sameOrigin);
  next.url = *std::move(url);
  if (toGET) {
    next.method = "GET";
    next.body.reset();
  }
  return RedirectTarget{std::move(next), std::nullopt};
}

}  // namespace paperloom::internal
