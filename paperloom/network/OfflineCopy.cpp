#include "paperloom/network/internal/OfflineCopy.h"

namespace paperloom {

// RFC 9110 section 8.3.1: what stands before the parameters is the media type.
bool isWebPage(const HTTPHeaders& headers) {
  std::string_view type = headers.first("Content-Type").value_or("");
  type = type.substr(0, type.find(';'));
  while (type.ends_with(' ') || type.ends_with('\t')) type.remove_suffix(1);
  return equalsIgnoringCase(type, "text/html");
}

namespace {

// What is decoded loses the field.
bool isCoded(const HTTPHeaders& headers) { return headers.contains("Content-Encoding"); }

}  // namespace

bool isOfflineCopy(const HTTPURLResponse& answer, const HTTPURLResponse* inPlaceOf) {
  if (answer.statusCode < 200 || answer.statusCode > 399) return false;
  if (inPlaceOf == nullptr) return true;
  const bool hidesIt = isWebPage(answer.headers) && !isWebPage(inPlaceOf->headers);
  return !hidesIt && (isCoded(inPlaceOf->headers) || !isCoded(answer.headers));
}

std::optional<CachedURLResponse> offlineCopy(const URLCache& cache, const URLRequest& request) {
  auto stored = cache.cachedResponseThroughRedirects(request);
  if (stored && !isOfflineCopy(stored->response)) return std::nullopt;
  return stored;
}

}  // namespace paperloom
