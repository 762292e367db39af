#pragma once

#include <optional>
#include <variant>
#include <vector>

#include "paperloom/platform/internal/caching/CachePlan.h"
#include "paperloom/platform/internal/caching/Serving.h"
#include "paperloom/platform/internal/caching/Storing.h"
#include "paperloom/platform/internal/session/Delivery.h"
#include "paperloom/platform/internal/session/Transfer.h"

namespace paperloom::internal {

// The course of one task, from its request to its delivery: redirect by redirect, each hop looked
// up in the cache, sent or validated by the rules of HTTP caching. It only decides; who holds it
// does the looking up and the sending.
class Exchange {
 public:
  // `configuration`, which outlives it, says whether there is a cache to look into and what the
  // requests of later hops are sent with. `known`: what the cache holds, as far as that is known.
  Exchange(URLRequest request, const URLSessionConfiguration& configuration, StoredHops known = {});

  // The request of the current hop, without the conditions of a validation.
  const URLRequest& request() const { return request_; }

  // What to do next: look request() up and hand what there is to found(), send a request and hand
  // its result to received(), or deliver.
  struct LookUp {};
  using Step = std::variant<LookUp, URLRequest, Delivery>;

  Step begin(Date now);
  Step found(StoredHops hops, Date now);
  Step received(TransferResult result, Date now);

  // The delivery of a task that ends for a reason of the session's own.
  Delivery fail(URLError error);

  // What the cache held for the task's own request, after stored redirects.
  std::optional<CachedURLResponse> storedBefore() const { return storedBefore_; }

 private:
  bool needsLookUp() const;
  bool takeKnownHop();
  Step nextHop(Date now);
  Step plan(Date now);
  URLRequest withPlannedConditions() const;
  Refresh refresh() const;
  // Plans to send without validators: the 304 that came to them was about another answer.
  void giveUpValidation();
  Step gatewayTimeout();
  Step confirmed(const TransferResult& result, Date now);
  Step fresh(TransferResult result, Date now);
  Step failed(TransferResult result, Date now);
  Step serveInsteadOfFailure(Date now);
  Step serveStored(const CachedURLResponse& stored, URLSessionTaskMetrics::Source source, Date now);
  // The next hop when `answer` is a redirect to follow, or its failure.
  std::optional<Step> follow(const HTTPURLResponse& answer, Date now);
  // What the answer changes in the cache beside being kept itself.
  void noteEffects(const TransferResult& result);
  // The stored answer brought up to date by a confirmation, here and in the cache.
  CachedURLResponse updateStored(const TransferResult& result);
  // Null when the answer is to be kept.
  const char* reasonNotToKeep(const HTTPURLResponse& answer, bool complete) const;
  std::optional<URLCache::Change> writeFor(const HTTPURLResponse& answer,
                                           const TransferResult& result);
  Delivery deliver(HTTPURLResponse response, Data data);

  URLRequest request_;
  const URLSessionConfiguration& configuration_;
  const bool hasCache_;
  StoredHops known_;  // of the hops to come
  std::optional<CachedURLResponse> storedBefore_;
  int redirects_ = 0;

  // Of the current hop.
  std::optional<CachedURLResponse> stored_;
  CachePlan plan_;
  bool validationFailed_ = false;

  std::vector<URLCache::Change> writes_;
  std::vector<URLCache::Change> heldWrites_;  // of redirects in place of documents
  URLSessionTaskMetrics metrics_;
  std::optional<Refresh> refresh_;
};

}  // namespace paperloom::internal
