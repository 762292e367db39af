#include "paperloom/platform/internal/http/RequestRules.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>

#include "paperloom/Version.h"

namespace paperloom::internal {
namespace {

using Code = URLError::Code;

bool isOneOf(std::string_view name, const auto& names) {
  return std::any_of(names.begin(), names.end(),
                     [&](std::string_view other) { return equalsIgnoringCase(name, other); });
}

bool isTokenCharacter(char c) {
  return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
         std::string_view("!#$%&'*+-.^_`|~").find(c) != std::string_view::npos;
}

bool isToken(std::string_view text) {
  return !text.empty() && std::all_of(text.begin(), text.end(), isTokenCharacter);
}

bool isFieldValue(std::string_view text) {
  return std::all_of(text.begin(), text.end(), [](char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte == '\t' || (byte >= 0x20 && byte != 0x7F);
  });
}

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

constexpr std::array<std::string_view, 15> harmlessAcrossOrigins = {"Accept",
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
                                                                    "Range"};

HTTPHeaders fieldsForTarget(const HTTPHeaders& fields, bool keepsBody, bool sameOrigin) {
  HTTPHeaders kept;
  for (const auto& [name, value] : fields) {
    const bool describesBody = name.size() > 8 && equalsIgnoringCase(name.substr(0, 8), "Content-");
    if (describesBody && !keepsBody) continue;
    const bool harmless =
        isOneOf(name, harmlessAcrossOrigins) || equalsIgnoringCase(name, "User-Agent");
    if (sameOrigin || harmless) kept.add(name, value);
  }
  return kept;
}

bool changesToGET(const std::string& method, int statusCode) {
  if (statusCode == 303) return method != "GET" && method != "HEAD";
  return (statusCode == 301 || statusCode == 302) && method == "POST";
}

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
  static constexpr std::array<std::string_view, 10> decidedHere = {
      "Host", "Content-Length", "Transfer-Encoding", "Connection", "Keep-Alive", "Proxy-Connection",
      "TE",   "Trailer",        "Upgrade",           "Expect"};
  HTTPHeaders fields;
  for (const auto& [name, value] : request.headers) {
    if (!isOneOf(name, decidedHere)) fields.add(name, value);
  }
  if (!fields.contains("Accept-Encoding")) {
    // The ranges of an encoded body could not be put together or decoded.
    fields.add("Accept-Encoding", fields.contains("Range") ? "identity" : "gzip, deflate");
  }
  if (!fields.contains("User-Agent")) {
    fields.add("User-Agent", "paperloom/" PAPERLOOM_VERSION);
  }
  return fields;
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
  if (!url) return std::nullopt;
  const bool toGET = changesToGET(request.method, answer.statusCode);
  const bool sameOrigin = url->origin() == request.url.origin();
  const bool takesBody = request.body && !request.body->empty() && !toGET;
  if (!sameOrigin && (request.staysAtOrigin || takesBody)) return std::nullopt;

  const auto refused = [](std::string text) {
    return RedirectTarget{std::nullopt, makeError(Code::redirectRefused, std::move(text))};
  };
  if (refusalOf(*url)) return refused("the server redirected to a URL that is not requested");
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
