#pragma once

#include <optional>
#include <string>

#include "paperloom/platform/Data.h"
#include "paperloom/platform/Date.h"
#include "paperloom/platform/HTTPHeaders.h"
#include "paperloom/platform/URL.h"

namespace paperloom {

// The head of an HTTP answer.
struct HTTPURLResponse {
  URL url;  // after redirects
  int statusCode = 0;
  HTTPHeaders headers;  // in the order received, repeated fields apart
};

// A whole answer as a URLCache keeps it.
struct CachedURLResponse {
  HTTPURLResponse response;
  Data data;
  Date requestTime;   // when the request for it, or its last validation, was sent
  Date responseTime;  // when the answer, or its last validation, was received
};

// Why an exchange failed. The description never repeats a header value or a body.
struct URLError {
  enum class Code {
    cancelled,
    timedOut,
    badURL,
    unsupportedURL,
    badRequest,  // a method, header name or value that must not be sent
    cannotFindHost,
    cannotConnectToHost,
    networkConnectionLost,
    secureConnectionFailed,
    httpTooManyRedirects,
    redirectRefused,  // to another scheme than http(s), or from https to http
    badServerResponse,
    cannotDecodeContentData,
    dataLengthExceedsMaximum,
    resourceUnavailable,  // only the cache was allowed and it holds nothing that fits
    unknown,
  };

  Code code = Code::unknown;
  std::string localizedDescription;
};

}  // namespace paperloom
