#pragma once

#include <curl/curl.h>

#include "paperloom/platform/URLResponse.h"

namespace paperloom::internal {

// The session's error for a failure of libcurl, in words that quote nothing of the exchange.
URLError errorForCode(CURLcode code);

}  // namespace paperloom::internal
