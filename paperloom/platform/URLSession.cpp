#include "paperloom/platform/URLSession.h"

#include <utility>

#include "paperloom/platform/BodyLimit.h"
#include "paperloom/platform/internal/http/ConfigurationRules.h"
#include "paperloom/platform/internal/session/SessionCore.h"
#include "paperloom/platform/internal/session/TaskCore.h"

namespace paperloom {

URLSession::URLSession(URLSessionConfiguration configuration)
    : core_(std::make_shared<internal::SessionCore>(std::move(configuration))) {}

URLSession::~URLSession() { core_->shutDown(); }

const URLSessionConfiguration& URLSession::configuration() const { return core_->configuration(); }

URLRequest URLSession::withDefaultHeaders(URLRequest request) const {
  internal::addDefaultFields(request, core_->configuration());
  return request;
}

std::shared_ptr<URLSessionTask> URLSession::dataTask(URLRequest request, Completion completion,
                                                     StoreFilter storeFilter,
                                                     Preparation preparation) {
  auto core = std::make_shared<internal::TaskCore>(withDefaultHeaders(std::move(request)), core_,
                                                   std::move(completion), std::move(storeFilter),
                                                   std::move(preparation));
  core->maximumBodySize = BodyLimit::current();
  return std::shared_ptr<URLSessionTask>(new URLSessionTask(std::move(core)));
}

}  // namespace paperloom
