#include <string_view>

#include "fuzz/DocumentFuzz.h"
#include "paperloom/platform/DateFormatter.h"
#include "paperloom/platform/URL.h"

namespace {

using paperloom::URL;
using paperloom::fuzz::require;

// Whatever is built from a URL is one.
void check(const URL& url, std::string_view other) {
  const URL appended = url.appendingPathComponent(other);
  require(URL::parse(appended.absoluteString()).has_value());
  require(appended.query() == url.query() && appended.fragment() == url.fragment());
  require(appended.host() == url.host() && appended.scheme() == url.scheme());

  const auto replaced = url.replacingQueryItems({{"uids", std::string(other)}});
  require(replaced && replaced->query() && replaced->path() == url.path());

  const auto resolved = url.resolving(other);
  require(resolved.has_value() ==
          (!url.scheme().empty() && (other.empty() || URL::parse(other).has_value())));
  if (resolved) require(!resolved->scheme().empty());
  if (url.port()) require(*url.port() >= 0 && *url.port() <= 65535);
  require(url.origin().empty() == (url.scheme().empty() || url.host().empty()));
}

}  // namespace

// The input is a URL and, after the first space, what to add to it.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(bytes), size);
  const std::size_t space = std::min(text.find(' '), text.size());
  const std::string_view other = text.substr(std::min(space + 1, text.size()));
  if (const auto url = URL::parse(text.substr(0, space))) {
    require(url->absoluteString() == text.substr(0, space));
    check(*url, other);
  }
  const auto& formatter = paperloom::DateFormatter::shared();
  if (const auto date = formatter.date(text)) {
    const auto again = formatter.date(formatter.string(*date));
    require(again && (*again == *date || text.starts_with("0000") || text.starts_with("9999")));
  }
  return 0;
}
