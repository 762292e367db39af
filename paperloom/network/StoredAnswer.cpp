#include "paperloom/network/internal/StoredAnswer.h"

#include "paperloom/platform/internal/http/RequestRules.h"

namespace paperloom {
namespace {

// RFC 9110 section 8.3.1, without the parameters.
std::string_view mediaType(const HTTPHeaders& headers) {
  std::string_view value = headers.first("Content-Type").value_or("");
  value = value.substr(0, value.find(';'));
  while (value.ends_with(' ') || value.ends_with('\t')) value.remove_suffix(1);
  return value;
}

}  // namespace

std::optional<CachedURLResponse> storedAnswer(const URLCache& cache, const URL& url) {
  std::optional<URLRequest> request(url);
  for (int hops = 0; request && hops <= internal::maximumRedirects; ++hops) {
    auto stored = cache.cachedResponse(*request);
    if (!stored) return std::nullopt;
    auto target = internal::redirectTarget(*request, stored->response);
    if (!target) return stored;
    request = std::move(target->request);
  }
  return std::nullopt;
}

void demandValidation(URLCache& cache, const URL& url) {
  const URLRequest request(url);
  auto stored = cache.cachedResponse(request);
  if (!stored) return;
  stored->response.headers.set("Cache-Control", "no-cache");
  cache.storeCachedResponse(*stored, request);
}

bool mayReplaceStoredAnswer(const URLCache& cache, const HTTPURLResponse& response) {
  const auto stored = cache.cachedResponse(URLRequest(response.url));
  return !stored ||
         equalsIgnoringCase(mediaType(stored->response.headers), mediaType(response.headers));
}

}  // namespace paperloom
