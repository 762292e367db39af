#include "paperloom/platform/internal/session/TaskCore.h"

#include "paperloom/platform/Events.h"

namespace paperloom::internal {

void TaskCore::tellStarted(bool inBackground) {
  static std::atomic<std::uint64_t> last{0};
  if (!Events::hasListener()) return;
  eventNumber = ++last;
  begun = std::chrono::steady_clock::now();
  Events::tell([&] {
    return event::RequestStarted{eventNumber, request.method, Events::withoutSecrets(request.url),
                                 inBackground};
  });
}

}  // namespace paperloom::internal
