#include "paperloom/platform/internal/caching/Serving.h"

#include <utility>

#include "paperloom/platform/internal/caching/Freshness.h"
#include "paperloom/platform/internal/http/ByteRange.h"
#include "paperloom/platform/internal/http/CacheControl.h"
#include "paperloom/platform/internal/http/EntityTag.h"
#include "paperloom/platform/internal/http/FieldNames.h"
#include "paperloom/platform/internal/http/HTTPDate.h"
#include "paperloom/platform/internal/http/HTTPFieldSyntax.h"

namespace paperloom::internal {
namespace {

// RFC 9110 section 13.1.3 with RFC 9111 section 4.3.2: an answer without Last-Modified is as new as
// its Date says, or its arrival.
Date lastChange(const CachedURLResponse& stored) {
  for (const char* name : {"Last-Modified", "Date"}) {
    const auto field = stored.response.headers.first(name);
    if (!field) continue;
    if (const auto date = parseHTTPDate(trimmed(*field), stored.responseTime)) return *date;
  }
  return stored.responseTime;
}

// Whether the request's own conditions say that it has this answer already (RFC 9111
// section 4.3.2). If-None-Match counts before If-Modified-Since (RFC 9110 section 13.2.2).
bool callerHasIt(const URLRequest& request, const CachedURLResponse& stored, Date now) {
  if (const auto tags = request.headers.combined("If-None-Match")) {
    return anyMatches(*tags, trimmed(stored.response.headers.first("ETag").value_or("")));
  }
  const auto since = request.headers.first("If-Modified-Since");
  if (!since) return false;
  const auto date = parseHTTPDate(trimmed(*since), now);
  return date && lastChange(stored) <= *date;
}

// RFC 9110 section 13.1.5: the range counts only while the answer is still the one the caller has a
// part of. A date must be the very same, and at least a second older than the answer, or two
// changes could lie within it (section 8.8.2.2).
bool rangeStillApplies(const URLRequest& request, const CachedURLResponse& stored, Date now) {
  const auto field = request.headers.first("If-Range");
  if (!field) return true;
  const std::string_view validator = trimmed(*field);
  const auto date = parseHTTPDate(validator, now);
  if (!date) {
    return matchesStrongly(trimmed(stored.response.headers.first("ETag").value_or("")), validator);
  }
  const auto modified = stored.response.headers.first("Last-Modified");
  const auto sent = stored.response.headers.first("Date");
  if (!modified || !sent) return false;
  const auto modifiedDate = parseHTTPDate(trimmed(*modified), stored.responseTime);
  const auto sentDate = parseHTTPDate(trimmed(*sent), stored.responseTime);
  return modifiedDate && sentDate && *modifiedDate == *date &&
         secondsBetween(*modifiedDate, *sentDate) >= std::chrono::seconds(1);
}

// RFC 9110 section 15.4.5: a 304 says nothing about the representation that the caller has.
void makeNotModified(StoredAnswer& answer) {
  for (const std::string_view name : fields::ofRepresentation) answer.response.headers.remove(name);
  if (answer.response.headers.contains("ETag")) answer.response.headers.remove("Last-Modified");
  answer.response.statusCode = 304;
  answer.data = Data();
}

// RFC 9110 sections 14.2, 15.3.7 and 15.5.17.
void cutRange(StoredAnswer& answer, const ByteRange& range) {
  const std::string_view body = answer.data.view();
  HTTPHeaders& headers = answer.response.headers;
  const std::string size = std::to_string(body.size());
  if (const auto span = range.within(body.size())) {
    answer.response.statusCode = 206;
    headers.set("Content-Range", "bytes " + std::to_string(span->first) + "-" +
                                     std::to_string(span->first + span->length - 1) + "/" + size);
    answer.data = Data(std::string(body.substr(span->first, span->length)));
  } else {
    answer.response.statusCode = 416;
    headers.set("Content-Range", "bytes */" + size);
    answer.data = Data();
  }
  headers.set("Content-Length", std::to_string(answer.data.size()));
}

}  // namespace

StoredAnswer answerFromStored(const URLRequest& request, const CachedURLResponse& stored, Date now,
                              bool validated) {
  StoredAnswer answer{stored.response, stored.data};
  HTTPHeaders& headers = answer.response.headers;
  // Section 4: "a cache MUST generate an Age header field, replacing any present in the response
  // with a value equal to the stored response's current_age".
  headers.set("Age", std::to_string(currentAge(stored, now).value.count()));
  if (!validated) {
    for (const std::string& name : CacheControl(headers).fieldNames("no-cache")) {
      headers.remove(name);
    }
  }
  // RFC 9110 section 13.2.1: conditions and ranges concern answers that would be 200 without them.
  if (stored.response.statusCode == 200) {
    const auto field = request.headers.combined("Range");
    const auto range = field ? ByteRange::parse(*field) : std::nullopt;
    if (callerHasIt(request, stored, now)) {
      makeNotModified(answer);
    } else if (range && request.method == "GET" && !headers.contains("Content-Encoding") &&
               rangeStillApplies(request, stored, now)) {
      cutRange(answer, *range);
    }
  }
  if (request.method == "HEAD") answer.data = Data();
  return answer;
}

}  // namespace paperloom::internal
