#include "paperloom/platform/internal/caching/VaryKey.h"

#include <openssl/evp.h>

#include <algorithm>
#include <array>
#include <vector>

#include "paperloom/platform/internal/http/HTTPFieldSyntax.h"

namespace paperloom::internal {
namespace {

bool isPreferenceList(std::string_view name) {
  return name == "accept" || name == "accept-charset" || name == "accept-encoding" ||
         name == "accept-language";
}

// Text and length, so that no two lists of texts run into the same bytes.
void append(std::string& to, std::string_view text) {
  to.append(std::to_string(text.size())).append(":").append(text);
}

void appendNormalized(std::string& to, std::string_view name, const HTTPHeaders& request) {
  append(to, name);
  const auto value = request.combined(name);
  if (!value) {
    to += '-';
    return;
  }
  std::vector<std::string> members;
  for (const std::string_view member : listMembers(*value)) members.emplace_back(member);
  if (isPreferenceList(name)) {
    for (std::string& member : members) {
      member = lowercased(member);
      std::erase_if(member, [](char c) { return c == ' ' || c == '\t'; });
    }
    std::sort(members.begin(), members.end());
  }
  append(to, std::to_string(members.size()));
  for (const std::string& member : members) append(to, member);
}

std::string digestOf(std::string_view names, const HTTPHeaders& request) {
  if (names.empty()) return {};
  std::string text;
  for (const std::string_view name : listMembers(names)) appendNormalized(text, name, request);
  static EVP_MD* const sha256 = EVP_MD_fetch(nullptr, "SHA256", nullptr);
  std::array<unsigned char, EVP_MAX_MD_SIZE> bytes{};
  unsigned int size = 0;
  if (sha256 == nullptr ||
      EVP_Digest(text.data(), text.size(), bytes.data(), &size, sha256, nullptr) != 1) {
    return {};  // fits nothing, since a digest has 32 bytes
  }
  return {reinterpret_cast<const char*>(bytes.data()), size};
}

}  // namespace

std::optional<VaryKey> varyKey(const HTTPHeaders& response, const HTTPHeaders& request) {
  std::vector<std::string> names;
  const auto vary = response.combined("Vary").value_or("");
  for (const std::string_view name : listMembers(vary)) names.push_back(lowercased(name));
  if (std::find(names.begin(), names.end(), "*") != names.end()) names.clear();
  if (request.contains("Authorization")) names.emplace_back("authorization");
  std::sort(names.begin(), names.end());
  names.erase(std::unique(names.begin(), names.end()), names.end());
  VaryKey key;
  for (const std::string& name : names) {
    if (!key.names.empty()) key.names += ',';
    key.names += name;
  }
  key.digest = digestOf(key.names, request);
  if (!key.names.empty() && key.digest.empty()) return std::nullopt;
  return key;
}

bool VaryMatcher::matches(std::string_view names, std::string_view digest) {
  if (names.empty()) return true;
  if (names != last_.names) {
    last_.digest = digestOf(names, request_);
    last_.names = names;
  }
  return !digest.empty() && digest == last_.digest;
}

}  // namespace paperloom::internal
