#pragma once

#include <cstdint>

#include "paperloom/platform/Export.h"

namespace paperloom {

// While one lives, the tasks that its thread makes hand over no body of more bytes, after decoding;
// what their session allows stays the most, and of several limits the least counts. A larger body
// ends its task with dataLengthExceedsMaximum. For requests that are made by way of others, such as
// a session manager.
class PAPERLOOM_EXPORT BodyLimit {
 public:
  explicit BodyLimit(std::int64_t bytes);
  ~BodyLimit();
  BodyLimit(const BodyLimit&) = delete;
  BodyLimit& operator=(const BodyLimit&) = delete;

  // That of the calling thread; the largest number there is without one.
  static std::int64_t current();

 private:
  const std::int64_t before_;
};

}  // namespace paperloom
