#include "paperloom/platform/internal/http/EntityTag.h"

#include <algorithm>

#include "paperloom/platform/internal/http/HTTPFieldSyntax.h"

namespace paperloom::internal {
namespace {

bool isWeak(std::string_view tag) { return tag.substr(0, 2) == "W/"; }

std::string_view withoutWeakness(std::string_view tag) { return isWeak(tag) ? tag.substr(2) : tag; }

}  // namespace

bool matchesWeakly(std::string_view tag, std::string_view other) {
  return !tag.empty() && withoutWeakness(tag) == withoutWeakness(other);
}

bool matchesStrongly(std::string_view tag, std::string_view other) {
  return !tag.empty() && !isWeak(tag) && tag == other;
}

bool anyMatches(std::string_view ifNoneMatch, std::string_view tag) {
  if (trimmed(ifNoneMatch) == "*") return true;
  const auto listed = listMembers(ifNoneMatch);
  return std::any_of(listed.begin(), listed.end(),
                     [&](std::string_view member) { return matchesWeakly(tag, member); });
}

}  // namespace paperloom::internal
