#include "paperloom/platform/DebugLog.h"

#include <memory>
#include <utility>

#include "paperloom/platform/Guarded.h"

namespace paperloom {
namespace {

using Slot = Guarded<std::shared_ptr<const DebugLog::Listener>>;

Slot& slot() {
  static Slot& instance = *new Slot;  // never destroyed: threads may write until the very end
  return instance;
}

}  // namespace

void DebugLog::setListener(Listener listener) {
  slot().set(listener ? std::make_shared<const Listener>(std::move(listener)) : nullptr);
}

void DebugLog::write(std::string_view line) {
  if (const auto listener = slot().get()) (*listener)(line);
}

}  // namespace paperloom
