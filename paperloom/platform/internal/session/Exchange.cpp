#include "paperloom/platform/internal/session/Exchange.h"

#include <iterator>
#include <utility>

#include "paperloom/platform/internal/http/ConfigurationRules.h"
#include "paperloom/platform/internal/http/FieldNames.h"
#include "paperloom/platform/internal/http/RequestRules.h"

namespace paperloom::internal {
namespace {

using Code = URLError::Code;
using Source = URLSessionTaskMetrics::Source;
using Action = CachePlan::Action;

}  // namespace

Exchange::Exchange(URLRequest request, const URLSessionConfiguration& configuration,
                   StoredHops known)
    : request_(std::move(request)),
      configuration_(configuration),
      hasCache_(configuration.urlCache != nullptr),
      known_(std::move(known)) {}

Exchange::Step Exchange::begin(Date now) {
  if (auto refusal = refusalOf(request_)) return fail(*std::move(refusal));
  return nextHop(now);
}

Exchange::Step Exchange::found(StoredHops hops, Date now) {
  if (redirects_ == 0) storedBefore_ = endOf(hops);
  known_ = std::move(hops);
  takeKnownHop();
  return plan(now);
}

bool Exchange::needsLookUp() const {
  if (!hasCache_ || (request_.method != "GET" && request_.method != "HEAD")) return false;
  const bool ignoresCache =
      request_.cachePolicy == URLRequestCachePolicy::reloadIgnoringLocalCacheData;
  const bool mayUpdate = request_.method == "HEAD" || request_.headers.contains("If-None-Match") ||
                         request_.headers.contains("If-Modified-Since");
  return !ignoresCache || mayUpdate;
}

// A stored redirect has been looked up together with what it leads to.
bool Exchange::takeKnownHop() {
  if (known_.empty() || known_.front().request.url != request_.url) return false;
  if (known_.front().request.headers != request_.headers) return false;  // another variant's
  stored_ = std::move(known_.front().stored);
  known_.erase(known_.begin());
  return true;
}

Exchange::Step Exchange::nextHop(Date now) {
  if (!needsLookUp() || takeKnownHop()) return plan(now);
  known_.clear();
  return LookUp{};
}

Exchange::Step Exchange::plan(Date now) {
  if (!hasCache_) return request_;
  plan_ = planRequest(request_, stored_ ? &*stored_ : nullptr, now);
  switch (plan_.action) {
    case Action::send:
    case Action::revalidate:
      return withPlannedConditions();
    case Action::gatewayTimeout:
      return gatewayTimeout();
    case Action::unavailable:
      return fail(makeError(Code::resourceUnavailable, "nothing is stored for the request"));
    case Action::serveStored:
      break;
  }
  if (plan_.revalidateInBackground) refresh_ = refresh();
  return serveStored(*stored_, plan_.stale ? Source::stale : Source::cache, now);
}

URLRequest Exchange::withPlannedConditions() const {
  URLRequest conditional = request_;
  for (const auto& [name, value] : plan_.conditions) conditional.headers.set(name, value);
  return conditional;
}

// For the whole document, whatever part of it was asked for.
Refresh Exchange::refresh() const {
  URLRequest whole = request_;
  whole.method = "GET";
  whole.cachePolicy = URLRequestCachePolicy::reloadRevalidatingCacheData;
  for (const std::string_view name : fields::askingForLess) whole.headers.remove(name);
  return {std::move(whole), *stored_};
}

void Exchange::giveUpValidation() {
  plan_.action = Action::send;
  plan_.conditions.remove("If-None-Match");
  plan_.conditions.remove("If-Modified-Since");
}

Exchange::Step Exchange::gatewayTimeout() {
  metrics_.source = Source::cache;
  HTTPURLResponse response{request_.url, 504, HTTPHeaders{{"Content-Length", "0"}}};
  return deliver(std::move(response), Data());
}

Exchange::Step Exchange::received(TransferResult result, Date now) {
  if (result.error || !result.response) return failed(std::move(result), now);
  if (plan_.action == Action::revalidate && result.response->statusCode == 304) {
    if (confirmsStored(plan_, *stored_, *result.response)) return confirmed(result, now);
    validationFailed_ = true;
    giveUpValidation();
    return withPlannedConditions();
  }
  return fresh(std::move(result), now);
}

Exchange::Step Exchange::confirmed(const TransferResult& result, Date now) {
  const CachedURLResponse entry = updateStored(result);
  plan_.age = std::chrono::seconds(0);
  return serveStored(entry, Source::revalidated, now);
}

CachedURLResponse Exchange::updateStored(const TransferResult& result) {
  auto entry =
      entryAfterValidation(*stored_, *result.response, result.requestTime, result.responseTime);
  URLRequest key(request_.url);
  key.headers = request_.headers;
  if (mayStore(key, entry.response, true)) {
    writes_.push_back({std::move(key), entry});
  } else if (!mayStore(URLRequest(request_.url), entry.response, true)) {
    writes_.push_back({std::move(key), std::nullopt});  // the server has come to forbid it
  }
  return entry;
}

Exchange::Step Exchange::fresh(TransferResult result, Date now) {
  metrics_.source = Source::network;
  metrics_.age.reset();
  metrics_.fetchedAt = result.responseTime;
  if (stored_ && mayServeStaleOnError(request_, *stored_, now, result.response->statusCode)) {
    metrics_.failedStatusCode = result.response->statusCode;
    return serveInsteadOfFailure(now);
  }
  if (hasCache_) noteEffects(result);
  HTTPURLResponse answer = *std::move(result.response);
  auto write = writeFor(answer, result);
  // Whether a redirect is worth keeping is no question for the filter of the final answer.
  const bool leadsOn = request_.followsRedirects && redirectTarget(request_, answer).has_value();
  if (leadsOn && write) {
    // In place of a document a redirect is kept only with what it leads to.
    const bool hidesDocument = stored_ && !isRedirect(stored_->response.statusCode);
    (hidesDocument ? heldWrites_ : writes_).push_back(*std::move(write));
  }
  if (auto next = follow(answer, now)) return *std::move(next);
  const char* const reason = hasCache_ ? reasonNotToKeep(answer, result.complete) : nullptr;
  const bool isForAll =
      mayStore(request_, answer, result.complete) && !variesOnEverything(answer.headers);
  Delivery delivery = deliver(std::move(answer), std::move(result.body));
  delivery.mayBeShared = isForAll;
  delivery.reasonNotKept = reason;
  delivery.freshAnswer = std::move(write);
  delivery.withFreshAnswer = std::move(heldWrites_);
  return delivery;
}

void Exchange::noteEffects(const TransferResult& result) {
  const HTTPURLResponse& answer = *result.response;
  for (const URL& url : invalidatedURLs(request_, answer)) {
    writes_.push_back({URLRequest(url), std::nullopt});
  }
  if (!stored_) return;
  // To conditions of the caller's own.
  if (answer.statusCode == 304 && confirmsStored(plan_, *stored_, answer)) updateStored(result);
  if (request_.method != "HEAD") return;
  switch (effectOfHead(*stored_, answer)) {
    case HeadEffect::none:
      break;
    case HeadEffect::update:
      updateStored(result);
      break;
    case HeadEffect::invalidate:
      writes_.push_back({URLRequest(request_.url), std::nullopt});
      break;
  }
}

const char* Exchange::reasonNotToKeep(const HTTPURLResponse& answer, bool complete) const {
  // A coding that only this caller has asked for is of no use to another.
  const bool coded = contentCoding(answer.headers) != ContentCoding::identity;
  if (coded && request_.headers.contains("Accept-Encoding")) {
    return "its coding is for this request alone";
  }
  return reasonNotToStore(request_, answer, complete);
}

std::optional<URLCache::Change> Exchange::writeFor(const HTTPURLResponse& answer,
                                                   const TransferResult& result) {
  if (!hasCache_ || reasonNotToKeep(answer, result.complete) != nullptr) return std::nullopt;
  URLRequest key(request_.url);
  key.headers = request_.headers;
  return URLCache::Change{
      std::move(key), entryToStore(answer, result.body, result.requestTime, result.responseTime)};
}

Exchange::Step Exchange::failed(TransferResult result, Date now) {
  if (stored_ && mayServeStaleOnError(request_, *stored_, now, std::nullopt)) {
    metrics_.failure = std::move(result.error);
    return serveInsteadOfFailure(now);
  }
  Delivery delivery = fail(result.error.value_or(makeError(Code::unknown, "the request failed")));
  delivery.response = std::move(result.response);
  return delivery;
}

Exchange::Step Exchange::serveInsteadOfFailure(Date now) {
  metrics_.serverFailed = true;
  return serveStored(*stored_, Source::stale, now);
}

Exchange::Step Exchange::serveStored(const CachedURLResponse& stored, Source source, Date now) {
  metrics_.source = source;
  metrics_.age = plan_.age;
  metrics_.fetchedAt = stored.responseTime;
  auto answer = answerFromStored(request_, stored, now, source == Source::revalidated);
  answer.response.url = request_.url;  // with this request's fragment
  if (auto next = follow(answer.response, now)) return *std::move(next);
  // What led to a stored answer is as good as that.
  std::move(heldWrites_.begin(), heldWrites_.end(), std::back_inserter(writes_));
  return deliver(std::move(answer.response), std::move(answer.data));
}

std::optional<Exchange::Step> Exchange::follow(const HTTPURLResponse& answer, Date now) {
  if (!request_.followsRedirects) return std::nullopt;
  auto target = redirectTarget(request_, answer);
  if (!target) return std::nullopt;
  if (!target->request) return fail(*std::move(target->refusal));
  if (++redirects_ > maximumRedirects) {
    return fail(makeError(Code::httpTooManyRedirects, "too many redirects"));
  }
  request_ = *std::move(target->request);
  addDefaultFields(request_, configuration_);
  stored_.reset();
  plan_ = CachePlan();
  validationFailed_ = false;
  metrics_ = URLSessionTaskMetrics();
  return nextHop(now);
}

Delivery Exchange::fail(URLError error) {
  return Delivery{
      .error = std::move(error), .metrics = metrics_, .writes = std::exchange(writes_, {})};
}

Delivery Exchange::deliver(HTTPURLResponse response, Data data) {
  return Delivery{.data = std::move(data),
                  .response = std::move(response),
                  .metrics = metrics_,
                  .writes = std::exchange(writes_, {}),
                  .refresh = std::move(refresh_)};
}

}  // namespace paperloom::internal
