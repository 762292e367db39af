#include "paperloom/platform/internal/http/CacheControl.h"

#include <algorithm>

#include "paperloom/platform/internal/http/HTTPFieldSyntax.h"

namespace paperloom::internal {

CacheControl::CacheControl(const HTTPHeaders& headers) {
  // Line by line: a quote left open on one line must not swallow the directives of the next.
  for (const std::string_view line : headers.all("Cache-Control")) {
    for (const std::string_view member : listMembers(line)) directives_.push_back(parse(member));
  }
}

// RFC 9111 section 5.2: a token, and an argument as a token or a quoted string, whichever a
// directive asks for.
CacheControl::Directive CacheControl::parse(std::string_view member) {
  Directive directive;
  const std::size_t equals = member.find('=');
  const std::string_view name = member.substr(0, equals);
  directive.name = lowercased(trimmed(name));
  directive.malformed = trimmed(name).size() != name.size();
  if (equals == std::string_view::npos) return directive;
  const std::string_view argument = member.substr(equals + 1);
  if (auto text = unquoted(argument)) {
    directive.argument = std::move(*text);
    directive.quoted = true;
  } else {
    directive.argument.emplace(argument);
  }
  return directive;
}

bool CacheControl::has(std::string_view name) const {
  return std::any_of(directives_.begin(), directives_.end(),
                     [&](const Directive& directive) { return directive.name == name; });
}

// RFC 9111 section 4.2.1: values that contradict each other are none.
CacheControl::Seconds CacheControl::seconds(std::string_view name) const {
  Seconds result;
  bool invalid = false;
  for (const Directive& directive : directives_) {
    if (directive.name != name) continue;
    std::optional<std::chrono::seconds> value;
    if (directive.argument && !directive.malformed) value = deltaSeconds(*directive.argument);
    invalid = invalid || !value || (result.value && *result.value != *value);
    result.withoutArgument = (!result.given || result.withoutArgument) && !directive.argument;
    result.given = true;
    result.value = value;
  }
  if (invalid) result.value.reset();
  return result;
}

// RFC 9111 sections 5.2.2.4 and 5.2.2.7: no-cache and private may name fields, in quotes. A token
// in their place is read as no argument, which is the stricter reading.
std::vector<std::string> CacheControl::fieldNames(std::string_view name) const {
  std::vector<std::string> names;
  for (const Directive& directive : directives_) {
    if (directive.name != name) continue;
    const auto members =
        directive.quoted ? listMembers(*directive.argument) : std::vector<std::string_view>();
    if (members.empty()) return {};
    names.insert(names.end(), members.begin(), members.end());
  }
  return names;
}

bool CacheControl::hasUnqualified(std::string_view name) const {
  return has(name) && fieldNames(name).empty();
}

}  // namespace paperloom::internal
