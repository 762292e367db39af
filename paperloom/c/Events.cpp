#include "paperloom/platform/Events.h"

#include <memory>

#include "paperloom/c/internal/Enumerations.h"
#include "paperloom/c/internal/Text.h"
#include "paperloom/c/paperloom.h"
#include "paperloom/platform/DispatchQueue.h"
#include "paperloom/platform/Guarded.h"

namespace paperloom::c {
namespace {

paperloom_source enumerator(URLSessionTaskMetrics::Source source) {
  using Source = URLSessionTaskMetrics::Source;
  switch (source) {
    case Source::network:
      return PAPERLOOM_SOURCE_NETWORK;
    case Source::cache:
      return PAPERLOOM_SOURCE_CACHE;
    case Source::revalidated:
      return PAPERLOOM_SOURCE_REVALIDATED;
    case Source::stale:
      return PAPERLOOM_SOURCE_STALE;
  }
  return PAPERLOOM_SOURCE_UNKNOWN;
}

// Fills a struct that is empty with what an event has.
struct Fill {
  void operator()(const event::RequestStarted& event) const {
    to.kind = PAPERLOOM_EVENT_REQUEST_STARTED;
    to.request = event.request;
    to.method = text(event.method);
    to.url = text(event.url);
    to.in_background = event.inBackground;
  }
  void operator()(const event::RequestAnswered& event) const {
    to.kind = PAPERLOOM_EVENT_REQUEST_ANSWERED;
    to.request = event.request;
    to.url = text(event.url);
    to.status = event.statusCode.value_or(0);
    to.failed = event.error.has_value();
    to.source = event.error ? PAPERLOOM_SOURCE_UNKNOWN : enumerator(event.source);
    to.server_failed = event.serverFailed;
    to.bytes = event.bytes;
    to.duration = event.duration.count();
  }
  void operator()(const event::CopyKept& event) const {
    to.kind = PAPERLOOM_EVENT_COPY_KEPT;
    to.url = text(event.url);
    to.bytes = static_cast<std::int64_t>(event.size);
  }
  void operator()(const event::CopyRefused& event) const {
    to.kind = PAPERLOOM_EVENT_COPY_REFUSED;
    to.url = text(event.url);
    to.reason = text(event.reason);
  }
  void operator()(const event::PartDropped& event) const {
    const bool isCard = event.part == event::PartDropped::Part::card;
    to.kind = isCard ? PAPERLOOM_EVENT_CARD_DROPPED : PAPERLOOM_EVENT_SECTION_DROPPED;
    if (isCard) to.section = text(event.section);
    to.index = event.index;
    to.reason = text(event.reason);
  }
  void operator()(const event::TokensRefreshed& event) const {
    using Outcome = event::TokensRefreshed::Outcome;
    to.kind = PAPERLOOM_EVENT_TOKENS_REFRESHED;
    to.failed = event.outcome != Outcome::refreshed;
    to.server_failed = event.outcome == Outcome::failed;
  }
  void operator()(const event::WarmingProgress& event) const {
    to.kind = PAPERLOOM_EVENT_WARMING_PROGRESS;
    to.url = text(event.url);
    to.failed = !event.isThere;
    to.done = event.done;
    to.total = event.total;
    to.bytes = event.bytes;
  }

  paperloom_event& to;
};

struct Listener {
  paperloom_event_callback callback = nullptr;
  void* userData = nullptr;
};

// Never destroyed: events may be told until the end.
Guarded<std::shared_ptr<const Listener>>& current() {
  static auto* const listener = new Guarded<std::shared_ptr<const Listener>>();
  return *listener;
}

// Its texts are those of the event.
paperloom_event borrowed(const Event& event) {
  paperloom_event told{};
  told.size = sizeof told;
  std::visit(Fill{told}, event);
  return told;
}

}  // namespace
}  // namespace paperloom::c

void paperloom_set_event_callback(paperloom_event_callback callback, void* user_data) {
  using namespace paperloom;
  if (callback == nullptr) {
    c::current().set(nullptr);
    return Events::setListener({});
  }
  const auto listener = std::make_shared<const c::Listener>(c::Listener{callback, user_data});
  c::current().set(listener);
  Events::setListener([listener](const Event& event) {
    DispatchQueue::main().async([listener, event] {
      if (c::current().get() != listener) return;
      const paperloom_event told = c::borrowed(event);
      listener->callback(listener->userData, &told);
    });
  });
}
