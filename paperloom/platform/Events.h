#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <variant>

#include "paperloom/platform/Export.h"
#include "paperloom/platform/URL.h"
#include "paperloom/platform/URLResponse.h"
#include "paperloom/platform/URLSessionTaskMetrics.h"

namespace paperloom {

// What happens within the library, for a host that measures or shows it. No event holds a header, a
// body, a token or a password; their URLs come without user, query and fragment, where a key may
// stand.
namespace event {

// A request of a session begins. `request` names it, in its answer too; 0 names none.
struct RequestStarted {
  std::uint64_t request = 0;
  std::string method;
  URL url;
  bool inBackground = false;  // the session's own: it refreshes a copy that was served stale
};

// It has been answered, or has failed; its callback comes next.
struct RequestAnswered {
  std::uint64_t request = 0;
  URL url;
  std::optional<int> statusCode{};
  std::optional<URLError::Code> error{};
  URLSessionTaskMetrics::Source source = URLSessionTaskMetrics::Source::network;
  bool serverFailed = false;             // and the stored copy took the place of its answer
  std::int64_t bytes = 0;                // of bodies, from the network, before decoding
  std::chrono::microseconds duration{};  // since it began, waiting for a connection included
};

// A session's cache has taken the answer: it is found when it is asked for.
struct CopyKept {
  URL url;
  std::size_t size = 0;  // of the body, in bytes
};

// A session's answer from the network is not kept. `reason` is a clause in the words of the rules.
struct CopyRefused {
  URL url;
  std::string reason;
};

// A document is used without one of its parts, which cannot be read.
struct PartDropped {
  enum class Part { section, card };
  Part part = Part::card;
  std::string section;    // uid of the section that the card stands in; empty for a section
  std::size_t index = 0;  // in the document, from 0
  std::string reason;     // the text of the parser's error
};

// A refresh of tokens has ended.
struct TokensRefreshed {
  enum class Outcome { refreshed, refused, failed };  // refused: the service accepts them no more
  Outcome outcome = Outcome::failed;
};

// A front page that is warmed has come this far.
struct WarmingProgress {
  URL url;  // the document that is done with
  bool isThere = false;
  std::size_t done = 0;
  std::size_t total = 0;
  std::int64_t bytes = 0;  // taken from the network so far
};

}  // namespace event

// Grows: let std::visit have a case for what it does not know.
using Event =
    std::variant<event::RequestStarted, event::RequestAnswered, event::CopyKept, event::CopyRefused,
                 event::PartDropped, event::TokensRefreshed, event::WarmingProgress>;

// The events of the process, one listener for all. Without one an event costs a look at a flag.
class PAPERLOOM_EXPORT Events {
 public:
  using Listener = std::function<void(const Event& event)>;

  // Called where the event happens, on several threads at once: it must be quick, must not throw,
  // and may call the library. One at a time; an empty function takes it away. May still be called
  // for a moment after it was replaced.
  static void setListener(Listener listener);

  static bool hasListener() { return listening_.load(std::memory_order_relaxed); }
  // Tells the listener, if there is one, what `make` makes.
  template <class Make>
  static void tell(Make&& make) {
    if (hasListener()) tellNow(make());
  }
  // The URL as events have it.
  static URL withoutSecrets(const URL& url);

 private:
  static void tellNow(const Event& event) noexcept;

  static std::atomic<bool> listening_;
};

}  // namespace paperloom
