#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "paperloom/platform/Date.h"

namespace paperloom::internal {

// The instant that an HTTP-date names, in any of its three forms (RFC 9110 section 5.6.7):
//   Sun, 06 Nov 1994 08:49:37 GMT     Sunday, 06-Nov-94 08:49:37 GMT     Sun Nov  6 08:49:37 1994
// Case does not count (RFC 9111 section 4.2), nor does a name of a day that is another day of the
// week. A year of two digits is the last such year that lies at most 50 years after `now`. Nothing
// for any other text, other zones included, and for dates and times that do not exist.
std::optional<Date> parseHTTPDate(std::string_view text, Date now);

// The preferred form, in whole seconds. Years outside 0 to 9999 are written as the nearest of them.
std::string formatHTTPDate(Date date);

}  // namespace paperloom::internal
