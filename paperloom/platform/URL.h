#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "paperloom/platform/Export.h"

namespace paperloom {

// A URL: a non-empty text that is a URI reference by RFC 3986. The text is kept as it was given.
// Immutable value; safe on any thread. Components are those of RFC 3986 section 3, undecoded.
class PAPERLOOM_EXPORT URL {
 public:
  // Nothing when `text` is empty or not a URI reference (RFC 3986 section 4.1).
  [[nodiscard]] static std::optional<URL> parse(std::string_view text);

  const std::string& absoluteString() const { return text_; }

  // Empty when the URL has no such component. The scheme and host are in lower case here; an IPv6
  // host keeps its brackets.
  std::string scheme() const;
  std::string host() const;
  std::string path() const;
  std::optional<std::string> query() const;
  std::optional<std::string> fragment() const;
  // The "user:password" part before the host, if any.
  std::optional<std::string> userInfo() const;
  // The port written in the URL, or the scheme's default (80, 443); nothing for other schemes
  // without one and for a port outside 0 to 65535.
  std::optional<int> port() const;

  // "scheme://host:port" in lower case with the port always written: two URLs have the same origin
  // when these are equal (RFC 6454 section 4). Empty for a URL without scheme or host.
  std::string origin() const;

  // This URL with `component` added to its path: exactly one slash between, the component
  // percent-encoded (a slash inside it stays), query and fragment kept.
  URL appendingPathComponent(std::string_view component) const;

  // This URL with its whole query replaced by `items` in the given order, values percent-encoded
  // (a comma stays). Nothing when no URL can be built.
  std::optional<URL> replacingQueryItems(
      const std::vector<std::pair<std::string, std::string>>& items) const;

  // `reference` resolved against this URL (RFC 3986 section 5.2). Nothing when it is no URI
  // reference or this URL is not absolute.
  std::optional<URL> resolving(std::string_view reference) const;

  friend bool operator==(const URL& a, const URL& b) { return a.text_ == b.text_; }

 private:
  explicit URL(std::string_view text) : text_(text) {}

  std::string text_;
};

}  // namespace paperloom
