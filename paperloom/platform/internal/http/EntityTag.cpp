#include "paperloom/platform/internal/http/EntityTag.h"

#include <algorithm>

#include "paperloom/platform/internal/http/HTTPFieldSyntax.h"

namespace paperloom::internal {
namespace {

bool isWeak(std::string_view tag) { return tag.substr(0, 2) == "W/"; }

std::string_view withoutWeakness(std::string_view tag) { return isWeak(tag) ? tag.substr(2) : tag; }

}  // namespace

// RFC 9110 section 8.8.3.2, for If-None-Match.
bool matchesWeakly(std::string_view tag, std::string_view other) {
  return !tag.empty() && withoutWeakness(tag) == withoutWeakness(other);
}

// The same section, for If-Match and If-Range, where every byte must be the same.
bool matchesStrongly(std::string_view tag, std::string_view other) {
  return !tag.empty() && !isWeak(tag) && tag == other;
}

bool anyMatches(std::string_view ifNoneMatch, std::string_view tag) {
  // RFC 9110 section 13.1.2: any representation at all.
  if (trimmed(ifNoneMatch) == "*") return true;
  const auto listed = listMembers(ifNoneMatch);
  return std::any_of(listed.begin(), listed.end(),
                     [&](std::string_view member) { return matchesWeakly(tag, member); });
}

}  // namespace paperloom::internal
