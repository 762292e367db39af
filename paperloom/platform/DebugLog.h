#pragma once

#include <functional>
#include <string_view>

#include "paperloom/platform/Export.h"

namespace paperloom {

// Notes for developers: silent unless the host listens. Lines hold no secret and no part of a
// document. Safe from any thread.
class PAPERLOOM_EXPORT DebugLog {
 public:
  using Listener = std::function<void(std::string_view line)>;

  // Called on the thread that writes, possibly on several at once. One at a time; an empty function
  // takes it away.
  static void setListener(Listener listener);

  // Hands the line to the listener at once, on the calling thread; nothing without one. Never give
  // it a token or a password.
  static void write(std::string_view line);
};

}  // namespace paperloom
