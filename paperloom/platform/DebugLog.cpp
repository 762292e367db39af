#include "paperloom/platform/DebugLog.h"

#include <memory>
#include <mutex>
#include <utility>

namespace paperloom {
namespace {

struct Slot {
  std::mutex mutex;
  std::shared_ptr<const DebugLog::Listener> listener;
};

Slot& slot() {
  static Slot& instance = *new Slot;  // never destroyed: threads may write until the very end
  return instance;
}

}  // namespace

void DebugLog::setListener(Listener listener) {
  auto held = listener ? std::make_shared<const Listener>(std::move(listener)) : nullptr;
  const std::lock_guard lock(slot().mutex);
  slot().listener.swap(held);
}

void DebugLog::write(std::string_view line) {
  std::shared_ptr<const Listener> listener;
  {
    const std::lock_guard lock(slot().mutex);
    listener = slot().listener;
  }
  if (listener) (*listener)(line);
}

}  // namespace paperloom
