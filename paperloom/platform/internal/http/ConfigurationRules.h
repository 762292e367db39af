#pragma once

#include <optional>
#include <string>

#include "paperloom/platform/URLRequest.h"
#include "paperloom/platform/URLResponse.h"
#include "paperloom/platform/URLSessionConfiguration.h"

// What a session's configuration says of single requests: pure functions, safe on any thread.
namespace paperloom::internal {

// Adds the default fields that the request has not and that its origin may see: what may be a
// secret, which is every field that a redirect would not take to another origin, goes only to the
// origins that the configuration names.
void addDefaultFields(URLRequest& request, const URLSessionConfiguration& configuration);

// Why the request must not be sent with this configuration, if so: a default field that may be a
// secret while no origin is named for it; a host with pinned keys that are none, that is to be
// reached without TLS, or whose name is written in a way that hides which it is.
std::optional<URLError> refusalOf(const URLRequest& request,
                                  const URLSessionConfiguration& configuration);

// The keys pinned for the URL's host as libcurl takes them; nothing for a host that is not named.
std::optional<std::string> keysPinnedFor(const URL& url,
                                         const URLSessionConfiguration& configuration);

}  // namespace paperloom::internal
