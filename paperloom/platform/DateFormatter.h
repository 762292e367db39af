#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "paperloom/platform/Date.h"
#include "paperloom/platform/Export.h"

namespace paperloom {

// Reads and writes instants in the one form that the content documents use:
// "yyyy-MM-dd'T'HH:mm:ssZZZZZ", such as 2018-03-01T14:05:09Z or 2018-03-01T15:05:09+01:00.
// Stateless; safe on any thread.
class PAPERLOOM_EXPORT DateFormatter {
 public:
  static const DateFormatter& shared();

  // The instant that `text` names; nothing when the text has another form, no offset, or names a
  // date or time that does not exist.
  std::optional<Date> date(std::string_view text) const;

  // The instant in UTC to the second, with the offset written as Z.
  std::string string(Date date) const;
};

}  // namespace paperloom
