#pragma once

#include <curl/curl.h>

#include "paperloom/platform/URLResponse.h"

namespace paperloom::internal {

// The session's error for the failure of a transfer of `handle`: why a certificate was refused, the
// proxy's status, and nothing else of the exchange.
URLError errorForCode(CURLcode code, CURL* handle);

}  // namespace paperloom::internal
