#pragma once

#include "paperloom/platform/Data.h"
#include "paperloom/platform/Date.h"
#include "paperloom/platform/URLRequest.h"
#include "paperloom/platform/URLResponse.h"

// What a stored answer becomes when it is handed out (RFC 9111 sections 4 and 5.1).
// Pure functions for a private cache: nothing here reads a clock, a cache or the network; every
// function is safe on any thread and takes whatever a server may send.
namespace paperloom::internal {

// The answer to hand out for `request` when it is answered with `stored` (sections 4 and 5.1):
// with its Age, as 304 when the request's own conditions ask for no more, as 206 or 416 for one
// byte range, without a body for HEAD. `validated` says that the server has just confirmed it.
struct StoredAnswer {
  HTTPURLResponse response;
  Data data;
};
StoredAnswer answerFromStored(const URLRequest& request, const CachedURLResponse& stored, Date now,
                              bool validated = false);

}  // namespace paperloom::internal
