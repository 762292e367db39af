#include "paperloom/platform/internal/caching/Storing.h"

#include <algorithm>
#include <array>
#include <set>
#include <string_view>
#include <utility>

#include "paperloom/platform/internal/caching/Freshness.h"
#include "paperloom/platform/internal/http/CacheControl.h"
#include "paperloom/platform/internal/http/EntityTag.h"
#include "paperloom/platform/internal/http/FieldNames.h"
#include "paperloom/platform/internal/http/HTTPDate.h"
#include "paperloom/platform/internal/http/HTTPFieldSyntax.h"

namespace paperloom::internal {
namespace {

using FieldNames = std::set<std::string, std::less<>>;  // in lower case

// Whether the field is about the connection that brought it, or for a proxy (section 3.1).
bool isNotKept(std::string_view name, const FieldNames& listedByConnection) {
  return fields::has(fields::ofConnectionOrProxy, name) ||
         listedByConnection.contains(lowercased(name));
}

FieldNames listedByConnection(const HTTPHeaders& headers) {
  FieldNames names;
  if (const auto listed = headers.combined("Connection")) {
    for (const std::string_view name : listMembers(*listed)) names.insert(lowercased(name));
  }
  return names;
}

// The final statuses whose caching rules are known here (RFC 9110 section 15), for must-understand
// (RFC 9111 section 5.2.2.3).
bool isUnderstood(int status) {
  constexpr std::array statuses{200, 201, 202, 203, 204, 205, 300, 301, 302, 303,
                                305, 307, 308, 400, 401, 402, 403, 404, 405, 406,
                                407, 408, 409, 410, 411, 412, 413, 414, 415, 416,
                                417, 421, 422, 426, 500, 501, 502, 503, 504, 505};
  return std::find(statuses.begin(), statuses.end(), status) != statuses.end();
}

std::string withoutFragment(const URL& url) {
  const std::string& text = url.absoluteString();
  return text.substr(0, text.find('#'));
}

std::optional<URL> urlInField(const URL& base, const HTTPHeaders& headers, std::string_view name) {
  const auto field = headers.first(name);
  if (!field) return std::nullopt;
  return base.resolving(trimmed(*field));
}

bool isSuccess(int status) { return status >= 200 && status <= 299; }

// RFC 9110 section 9.3.3.
bool isPostAnswerForGet(const URLRequest& request, const HTTPURLResponse& response) {
  const auto location = urlInField(request.url, response.headers, "Content-Location");
  return request.method == "POST" && isSuccess(response.statusCode) && location &&
         withoutFragment(*location) == withoutFragment(request.url) &&
         freshnessLifetime(response, Date()).isExplicit;
}

// Whether a field of the confirmation, when it is there, says the same as the stored one.
bool agrees(const HTTPHeaders& stored, const HTTPHeaders& received, std::string_view name) {
  return !received.contains(name) || received.first(name) == stored.first(name);
}

}  // namespace

bool mayStore(const URLRequest& request, const HTTPURLResponse& response, bool complete) {
  return reasonNotToStore(request, response, complete) == nullptr;
}

const char* reasonNotToStore(const URLRequest& request, const HTTPURLResponse& response,
                             bool complete) {
  // Section 3: "A cache MUST NOT store a response to a request unless: [1] the request method is
  // understood by the cache;"
  if (request.method != "GET" && !isPostAnswerForGet(request, response)) {
    return "only answers to GET are kept";
  }
  // "[2] the response status code is final;" and section 3.3: partial contents are not combined
  // here, which it leaves open, and cut ones not kept. A 304 is never an answer of its own.
  const int status = response.statusCode;
  if (!complete) return "it is not known to be whole";
  if (status < 200 || status > 999 || status == 206 || status == 304) {
    return "an answer of its status is not kept";
  }
  // "[3] if [...] the must-understand cache directive is present: the cache understands the
  // response status code; [4] the no-store cache directive is not present in the response", which
  // section 5.2.2.3 ignores beside the former; section 5.2.1.5 has the request's.
  if (CacheControl(request.headers).has("no-store")) return "the request forbids it (no-store)";
  const CacheControl control(response.headers);
  if (control.has("must-understand")) {
    if (!isUnderstood(status)) return "its status is not understood (must-understand)";
  } else if (control.has("no-store")) {
    return "the answer forbids it (no-store)";
  }
  // [5] and [6] are for shared caches. "[7] the response contains at least one of the following": a
  // status that allows heuristics, public, private, max-age or Expires.
  const bool isAllowed = isHeuristicallyCacheable(status) || control.has("public") ||
                         control.has("private") || control.has("max-age") ||
                         response.headers.contains("Expires");
  return isAllowed ? nullptr : "nothing says for how long it is fresh";
}

CachedURLResponse entryToStore(const HTTPURLResponse& response, Data data, Date requestTime,
                               Date responseTime) {
  CachedURLResponse entry{
      {response.url, response.statusCode, {}}, std::move(data), requestTime, responseTime};
  const FieldNames listed = listedByConnection(response.headers);
  for (const auto& [name, value] : response.headers) {
    if (!isNotKept(name, listed)) entry.response.headers.add(name, value);
  }
  // RFC 9110 section 6.6.1.
  if (!entry.response.headers.contains("Date")) {
    entry.response.headers.add("Date", formatHTTPDate(responseTime));
  }
  return entry;
}

bool confirmsStored(const CachePlan& plan, const CachedURLResponse& stored,
                    const HTTPURLResponse& notModified) {
  const HTTPHeaders& received = notModified.headers;
  const HTTPHeaders& kept = stored.response.headers;
  const auto tag = received.first("ETag");
  const auto keptTag = kept.first("ETag");
  // "each of those strong validators identifies a selected representation for update [...] If none
  // of the initial set contains at least one of the same strong validators, then the cache MUST NOT
  // use the new response to update any stored responses." Servers that code on the fly weaken the
  // tag of a 200 and not that of its 304, so the tags are compared without their weakness.
  if (tag && keptTag) return matchesWeakly(trimmed(*tag), trimmed(*keptTag));
  const bool sameTime = received.contains("Last-Modified") &&
                        received.first("Last-Modified") == kept.first("Last-Modified");
  return sameTime || (plan.action == CachePlan::Action::revalidate && !tag);
}

CachedURLResponse entryAfterValidation(const CachedURLResponse& stored,
                                       const HTTPURLResponse& confirmation, Date requestTime,
                                       Date responseTime) {
  CachedURLResponse entry = stored;
  entry.requestTime = requestTime;
  entry.responseTime = responseTime;
  HTTPHeaders& headers = entry.response.headers;
  const FieldNames listed = listedByConnection(confirmation.headers);
  // Age and Date belong to the message that brought them, not to the stored answer.
  headers.remove("Age");
  headers.set("Date", formatHTTPDate(responseTime));
  FieldNames replaced;
  for (const auto& [name, value] : confirmation.headers) {
    if (isNotKept(name, listed) || fields::has(fields::ofStoredBytes, name)) continue;
    if (replaced.insert(lowercased(name)).second) headers.remove(name);
    headers.add(name, value);
  }
  return entry;
}

std::vector<URL> invalidatedURLs(const URLRequest& request, const HTTPURLResponse& response) {
  // Section 4.4: "A cache MUST invalidate the target URI when it receives a non-error status code
  // in response to an unsafe request method (including methods whose safety is unknown)." Safe are
  // those of RFC 9110 section 9.2.1.
  constexpr std::array<std::string_view, 4> safe{"GET", "HEAD", "OPTIONS", "TRACE"};
  if (std::find(safe.begin(), safe.end(), request.method) != safe.end()) return {};
  if (response.statusCode < 200 || response.statusCode > 399) return {};
  std::vector<URL> urls{request.url};
  // "a cache MUST NOT trigger an invalidation under these conditions if the origin [...] of the URI
  // to be invalidated differs from that of the target URI."
  for (const char* name : {"Location", "Content-Location"}) {
    auto url = urlInField(request.url, response.headers, name);
    if (!url || url->origin().empty() || url->origin() != request.url.origin()) continue;
    if (std::find(urls.begin(), urls.end(), *url) == urls.end()) urls.push_back(std::move(*url));
  }
  return urls;
}

HeadEffect effectOfHead(const CachedURLResponse& stored, const HTTPURLResponse& headAnswer) {
  if (headAnswer.statusCode != 200 || stored.response.statusCode != 200) return HeadEffect::none;
  const HTTPHeaders& kept = stored.response.headers;
  const HTTPHeaders& received = headAnswer.headers;
  if (CacheControl(received).has("no-store")) return HeadEffect::invalidate;
  // A Content-Length compares only where it stands for the stored one in the same coding.
  const bool sameLength = !kept.contains("Content-Length") ||
                          !agrees(kept, received, "Content-Encoding") ||
                          agrees(kept, received, "Content-Length");
  return agrees(kept, received, "ETag") && agrees(kept, received, "Last-Modified") && sameLength
             ? HeadEffect::update
             : HeadEffect::invalidate;
}

}  // namespace paperloom::internal
