#include "paperloom/platform/internal/http/ResponseHead.h"

#include <algorithm>
#include <charconv>
#include <utility>

#include "paperloom/platform/internal/http/HTTPFieldSyntax.h"

namespace paperloom::internal {
namespace {

constexpr std::size_t maximumLine = 64 * 1024;
constexpr std::size_t maximumBytes = 256 * 1024;
constexpr std::size_t maximumFields = 1000;

// A length that is told in two lines could be told in two ways (RFC 9112 section 5.2).
bool framesTheBody(std::string_view name) {
  return equalsIgnoringCase(name, "Content-Length") ||
         equalsIgnoringCase(name, "Transfer-Encoding");
}

// Digits and nothing else: neither a sign nor an empty text, which from_chars would take.
std::optional<std::int64_t> parseLength(std::string_view text) {
  std::int64_t value = 0;
  const bool digits = !text.empty() && std::all_of(text.begin(), text.end(),
                                                   [](char c) { return c >= '0' && c <= '9'; });
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (!digits || error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return value;
}

}  // namespace

ResponseHead::Progress ResponseHead::add(std::string_view line) {
  bytes_ += line.size();
  if (line.size() > maximumLine || bytes_ > maximumBytes) return Progress::tooLarge;
  while (!line.empty() && (line.back() == '\n' || line.back() == '\r')) line.remove_suffix(1);
  // Trailers (RFC 9110 section 6.5): counted, and left out.
  if (complete_) {
    return ++fieldCount_ > maximumFields ? Progress::tooLarge : Progress::incomplete;
  }
  if (!inHeader_) return addStatusLine(line);
  return line.empty() ? endHeader() : addField(line);
}

ResponseHead::Progress ResponseHead::addStatusLine(std::string_view line) {
  // "HTTP/1.1 200 OK", "HTTP/2 200"
  if (!line.starts_with("HTTP/")) return Progress::malformed;
  const auto space = line.find(' ');
  if (space == std::string_view::npos) return Progress::malformed;
  isHTTP1_ = line.substr(5, 1) == "1";
  const std::string_view code = line.substr(space + 1, 3);
  const std::string_view rest = line.substr(std::min(line.size(), space + 4));
  const auto status = code.size() == 3 ? parseLength(code) : std::nullopt;
  if (!status || *status < 100 || (!rest.empty() && rest[0] != ' ')) return Progress::malformed;
  statusCode_ = static_cast<int>(*status);
  inHeader_ = true;
  // Nobody asked for another protocol.
  return statusCode_ == 101 ? Progress::malformed : Progress::incomplete;
}

ResponseHead::Progress ResponseHead::addField(std::string_view line) {
  if (std::any_of(line.begin(), line.end(), isControl)) return Progress::malformed;
  if (line[0] == ' ' || line[0] == '\t') {  // folded: one space in its place (RFC 9112 5.2)
    if (!lastField_ || framesTheBody(lastField_->first)) return Progress::malformed;
    if (const auto more = trimmed(line); !more.empty()) lastField_->second.append(" ").append(more);
    return Progress::incomplete;
  }
  if (++fieldCount_ > maximumFields) return Progress::tooLarge;
  const auto colon = line.find(':');
  const std::string_view name = line.substr(0, colon);
  // RFC 9112 section 5.1: no white space before the colon either, which would be no token.
  if (colon == std::string_view::npos || !isToken(name)) return Progress::malformed;
  if (lastField_) fields_.add(std::move(lastField_->first), std::move(lastField_->second));
  lastField_.emplace(name, trimmed(line.substr(colon + 1)));
  return Progress::incomplete;
}

ResponseHead::Progress ResponseHead::endHeader() {
  if (lastField_) fields_.add(std::move(lastField_->first), std::move(lastField_->second));
  lastField_.reset();
  inHeader_ = false;
  // RFC 9110 section 15.2: an interim response, and the header of the next follows.
  if (statusCode_ < 200) {
    fields_ = HTTPHeaders();
    return Progress::incomplete;
  }
  complete_ = true;
  return Progress::complete;
}

ResponseHead::Framing ResponseHead::framing(bool hasBody) const {
  Framing framing;
  for (std::string_view value : fields_.all("Content-Length")) {
    // The same length repeated is harmless (RFC 9110 section 8.6).
    while (true) {
      const auto comma = value.find(',');
      const auto length = parseLength(trimmed(value.substr(0, comma)));
      if (!length || (framing.length && framing.length != length)) {
        framing.malformed = true;
        return framing;
      }
      framing.length = length;
      if (comma == std::string_view::npos) break;
      value.remove_prefix(comma + 1);
    }
  }
  // RFC 9112 section 6.3: chunks override a length, and a coding that is not known here leaves the
  // body without an end that could be found.
  if (const auto codings = fields_.combined("Transfer-Encoding")) {
    framing.chunked = equalsIgnoringCase(trimmed(*codings), "chunked");
    framing.malformed = !framing.chunked;
    framing.lengthAndChunks = framing.length.has_value();
    framing.length.reset();
    return framing;
  }
  framing.endsWithConnection = hasBody && !framing.length;
  return framing;
}

}  // namespace paperloom::internal
