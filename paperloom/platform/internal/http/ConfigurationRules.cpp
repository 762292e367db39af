#include "paperloom/platform/internal/http/ConfigurationRules.h"

#include <algorithm>
#include <cctype>
#include <string_view>

#include "paperloom/Version.h"
#include "paperloom/platform/internal/http/FieldNames.h"
#include "paperloom/platform/internal/http/RequestRules.h"

namespace paperloom::internal {
namespace {

using Code = URLError::Code;

bool mayBeSecret(std::string_view name) {
  return !fields::has(fields::harmlessAcrossOrigins, name) &&
         !fields::has(fields::decidedBySession, name);
}

bool isNamed(const std::vector<URL>& origins, const URL& url) {
  const std::string origin = url.origin();
  return !origin.empty() && std::any_of(origins.begin(), origins.end(),
                                        [&](const URL& one) { return one.origin() == origin; });
}

// libcurl takes a text without the prefix for the path of a file, and would read it.
bool isPin(std::string_view text) {
  constexpr std::string_view prefix = "sha256//";
  constexpr std::size_t digits = 43;  // of 32 bytes in base64, before one "="
  if (!text.starts_with(prefix) || text.size() != prefix.size() + digits + 1) return false;
  const std::string_view value = text.substr(prefix.size(), digits);
  return text.back() == '=' && std::all_of(value.begin(), value.end(), [](unsigned char c) {
           return std::isalnum(c) != 0 || c == '+' || c == '/';
         });
}

// A host written with a dot at its end is the same host.
std::string_view withoutLastDot(std::string_view host) {
  if (host.ends_with('.')) host.remove_suffix(1);
  return host;
}

const std::vector<std::string>* pinsOf(const URL& url,
                                       const URLSessionConfiguration& configuration) {
  if (configuration.pinnedPublicKeys.empty()) return nullptr;
  const std::string host = url.host();
  for (const auto& [name, keys] : configuration.pinnedPublicKeys) {
    if (equalsIgnoringCase(withoutLastDot(name), withoutLastDot(host))) return &keys;
  }
  return nullptr;
}

std::optional<URLError> refusalByPins(const URL& url,
                                      const URLSessionConfiguration& configuration) {
  if (configuration.pinnedPublicKeys.empty()) return std::nullopt;
  const auto refused = [](const char* reason) {
    return makeError(Code::secureConnectionFailed,
                     std::string("no secure connection to the server could be made: ") + reason);
  };
  if (url.host().find('%') != std::string::npos) {
    return refused("public keys are pinned, and the host is written with percent signs");
  }
  const auto* keys = pinsOf(url, configuration);
  if (keys == nullptr) return std::nullopt;
  if (keys->empty() || !std::all_of(keys->begin(), keys->end(), isPin)) {
    return refused("what is pinned for the host is not a public key as sha256//...=");
  }
  if (url.scheme() != "https") return refused("public keys are pinned for a host without TLS");
  return std::nullopt;
}

}  // namespace

void addDefaultFields(URLRequest& request, const URLSessionConfiguration& configuration) {
  if (!configuration.defaultHeaders.empty()) {
    const bool isTrusted = isNamed(configuration.defaultHeaderOrigins, request.url);
    const HTTPHeaders own = request.headers;
    for (const auto& [name, value] : configuration.defaultHeaders) {
      if (own.contains(name) || (mayBeSecret(name) && !isTrusted)) continue;
      request.headers.add(name, value);
    }
  }
  if (!configuration.userAgentProduct.empty() && !request.headers.contains("User-Agent")) {
    request.headers.add("User-Agent",
                        configuration.userAgentProduct + " paperloom/" PAPERLOOM_VERSION);
  }
}

std::optional<URLError> refusalOf(const URLRequest& request,
                                  const URLSessionConfiguration& configuration) {
  if (configuration.defaultHeaderOrigins.empty()) {
    for (const auto& [name, value] : configuration.defaultHeaders) {
      if (!mayBeSecret(name)) continue;
      return makeError(Code::badRequest,
                       "a default header field may be a secret, and no origin is named for it");
    }
  }
  return refusalByPins(request.url, configuration);
}

std::optional<std::string> keysPinnedFor(const URL& url,
                                         const URLSessionConfiguration& configuration) {
  const auto* keys = pinsOf(url, configuration);
  if (keys == nullptr) return std::nullopt;
  std::string all;
  for (const std::string& key : *keys) all.append(all.empty() ? "" : ";").append(key);
  return all;
}

}  // namespace paperloom::internal
