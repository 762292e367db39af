#include "paperloom/platform/Events.h"

#include <algorithm>
#include <memory>
#include <utility>

#include "paperloom/platform/Callback.h"
#include "paperloom/platform/Guarded.h"

namespace paperloom {
namespace {

// Never destroyed: threads may tell until the end.
Guarded<std::shared_ptr<const Events::Listener>>& current() {
  static auto* const listener = new Guarded<std::shared_ptr<const Events::Listener>>();
  return *listener;
}

}  // namespace

std::atomic<bool> Events::listening_ = false;

void Events::setListener(Listener listener) {
  listening_ = static_cast<bool>(listener);
  current().set(std::make_shared<const Listener>(std::move(listener)));
}

void Events::tellNow(const Event& event) noexcept {
  if (const auto listener = current().get()) call(*listener, event);
}

URL Events::withoutSecrets(const URL& url) {
  std::string text = url.absoluteString();
  text.resize(std::min(text.size(), text.find_first_of("?#")));
  if (const auto userInfo = url.userInfo()) {
    const std::size_t at = text.find(*userInfo + "@");
    if (at != std::string::npos) text.erase(at, userInfo->size() + 1);
  }
  return URL::parse(text).value_or(*URL::parse("about:blank"));
}

}  // namespace paperloom
