#pragma once

#include <string_view>

namespace paperloom::internal {

// Comparing entity tags (RFC 9110 section 8.8.3). A tag is compared as the text it is, malformed
// ones too: a server that sends a tag without quotes gets it back in the same shape.
bool matchesWeakly(std::string_view tag, std::string_view other);
bool matchesStrongly(std::string_view tag, std::string_view other);

// Whether If-None-Match names the tag (section 13.1.2): by "*" or, weakly, in its list. `tag` is
// empty when the stored answer has none.
bool anyMatches(std::string_view ifNoneMatch, std::string_view tag);

}  // namespace paperloom::internal
