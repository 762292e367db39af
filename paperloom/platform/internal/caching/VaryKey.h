#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "paperloom/platform/HTTPHeaders.h"

namespace paperloom::internal {

// What sets the variants of one URL apart (RFC 9111 section 4.1): the request fields that an
// answer's Vary names, and their values in the request that it answers. The values may be secrets,
// so only their SHA-256 is kept.
//
// Values are compared after combining repeated fields, without regard to white space around list
// members; those of Accept, Accept-Charset, Accept-Encoding and Accept-Language also without
// regard to case and order. A field that is absent differs from an empty one.
//
// The answer to a request with Authorization always varies by it: what one account was told is not
// another's, whether the server says so or not.
struct VaryKey {
  std::string names;   // in lower case, sorted, each once, separated by commas
  std::string digest;  // 32 bytes; empty when there are no names
};

// "Vary: *" names no fields to compare, so such an answer is found for every request; section 4.1
// says that it never matches, which is for those to heed who would use it without asking.
// Nothing when there is no digest to be had.
std::optional<VaryKey> varyKey(const HTTPHeaders& response, const HTTPHeaders& request);

// Tells which variants fit one request. Remembers its last digest: the variants of a URL mostly
// name the same fields. The headers must outlive it.
class VaryMatcher {
 public:
  explicit VaryMatcher(const HTTPHeaders& request) : request_(request) {}

  bool matches(std::string_view names, std::string_view digest);

 private:
  const HTTPHeaders& request_;
  VaryKey last_;
};

}  // namespace paperloom::internal
