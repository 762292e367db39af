#include "paperloom/network/ContentSessionManagerProtocol.h"

namespace paperloom {

std::shared_ptr<URLSessionTask> ContentSessionManagerProtocol::getDataFor(
    URLRequest request, ErasedParser parser, ErasedCompletion completion, Parsing parsing) {
  if (request.cachePolicy != URLRequestCachePolicy::returnCacheDataDontLoad) {
    return getData(request.url, std::move(parser), std::move(completion), parsing);
  }
  completion(tl::unexpected(PaperloomError::networkError("no network error")),
             Provenance{.error = URLError{URLError::Code::resourceUnavailable, "no copy is kept"}});
  return URLSessionTask::unattached(std::move(request));
}

}  // namespace paperloom
