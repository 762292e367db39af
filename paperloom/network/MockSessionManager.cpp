#include "paperloom/network/MockSessionManager.h"

#include <utility>

#include "paperloom/platform/FatalError.h"

namespace paperloom {

MockSessionManager::MockSessionManager(Data data)
    : contentSessionCache_(std::make_shared<URLCache>()), data_(std::move(data)) {}

std::shared_ptr<URLSessionTask> MockSessionManager::postJSONData(
    const URL& /*url*/, Data /*body*/, std::function<void(PostRequestResult)> /*completion*/) {
  fatalError("postJSONData not yet implemented");
}

std::shared_ptr<URLSessionTask> MockSessionManager::getData(const URL& url, ErasedParser parser,
                                                            ErasedCompletion completion,
                                                            Parsing /*parsing*/) {
  const Provenance provenance{.source = Provenance::Source::library};
  auto parsed = parser(data_);
  if (parsed) {
    completion(std::move(*parsed), provenance);
  } else {
    completion(tl::unexpected(asPaperloomError(std::move(parsed.error()))), provenance);
  }
  return URLSessionTask::unattached(URLRequest(url));
}

}  // namespace paperloom
