#include "paperloom/platform/URL.h"

#include <uriparser/Uri.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <cstring>

namespace paperloom {
namespace {

enum : std::uint8_t {
  pathByte = 1,     // pchar and "/", without "%" (RFC 3986 section 3.3)
  hostByte = 2,     // reg-name without "%" (section 3.2.2)
  queryByte = 4,    // query and fragment without "%" (sections 3.4 and 3.5)
  schemeByte = 8,   // section 3.1, after the first letter
  unreserved = 16,  // section 2.3
  hexByte = 32,
};

// A table, since every byte of every URL of a document is asked about.
constexpr std::array<std::uint8_t, 256> byteClasses = [] {
  std::array<std::uint8_t, 256> classes{};
  const auto add = [&](std::string_view bytes, int flags) {
    for (const char c : bytes) {
      auto& entry = classes[static_cast<unsigned char>(c)];
      entry = static_cast<std::uint8_t>(entry | flags);
    }
  };
  add("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789",
      pathByte | hostByte | queryByte | schemeByte | unreserved);
  add("-._~", pathByte | hostByte | queryByte | unreserved);
  add("!$&'()*+,;=", pathByte | hostByte | queryByte);
  add(":@/", pathByte | queryByte);
  add("?", queryByte);
  add("+-.", schemeByte);
  add("0123456789abcdefABCDEF", hexByte);
  return classes;
}();

bool is(char c, int flags) { return (byteClasses[static_cast<unsigned char>(c)] & flags) != 0; }

bool isLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }

bool isDigit(char c) { return c >= '0' && c <= '9'; }

// The index of the first byte at or after `from` that is neither of the class nor part of a
// percent-encoded byte.
std::size_t skip(std::string_view text, std::size_t from, int flags) {
  while (from < text.size()) {
    if (is(text[from], flags)) {
      ++from;
    } else if (text[from] == '%' && from + 2 < text.size() && is(text[from + 1], hexByte) &&
               is(text[from + 2], hexByte)) {
      from += 3;
    } else {
      break;
    }
  }
  return from;
}

// The length of the scheme; 0 for a relative reference.
std::size_t schemeLength(std::string_view text) {
  if (text.empty() || !isLetter(text.front())) return 0;
  const auto end =
      std::find_if_not(text.begin(), text.end(), [](char c) { return is(c, schemeByte); });
  if (end == text.end() || *end != ':') return 0;
  return static_cast<std::size_t>(end - text.begin());
}

// Whether all 16 bytes are letters, digits or of "&'()*+,-./:;=?_~", compared at once.
bool arePathAndQueryBytes(const char* bytes) {
  using Block = std::uint8_t __attribute__((vector_size(16)));
  Block block;
  std::memcpy(&block, bytes, sizeof block);
  const Block letters = (block | 0x20) - 'a';
  const Block ampersandToSemicolon = block - '&';
  const auto others = (letters > 'z' - 'a') & (ampersandToSemicolon > ';' - '&') &
                      ((block | 2) != '?') & (block != '_') & (block != '~');
  std::array<std::uint64_t, 2> halves;
  std::memcpy(halves.data(), &others, sizeof halves);
  return (halves[0] | halves[1]) == 0;
}

// Recognises a web address of only such bytes, without port: nearly every URL of a stream, which
// holds thousands.
bool isCommonAddress(std::string_view text) {
  if (text.size() < 16 || !text.starts_with("http")) return false;
  const std::size_t scheme = text[4] == 's' ? 5 : 4;
  if (text.substr(scheme, 3) != "://") return false;
  for (std::size_t at = 0; at + 16 < text.size(); at += 16) {
    if (!arePathAndQueryBytes(text.data() + at)) return false;
  }
  if (!arePathAndQueryBytes(text.data() + text.size() - 16)) return false;
  std::size_t hostEnd = scheme + 3;
  while (hostEnd < text.size() && is(text[hostEnd], hostByte)) ++hostEnd;
  return hostEnd == text.size() || text[hostEnd] == '/' || text[hostEnd] == '?';
}

// Recognises every reference except those with user information or an IP literal, without the
// general parser's allocation for each segment.
bool isPlainReference(std::string_view text) {
  const std::size_t scheme = schemeLength(text);
  std::size_t at = scheme == 0 ? 0 : scheme + 1;
  if (text.substr(at, 2) == "//") {
    at = skip(text, at + 2, hostByte);
    if (at < text.size() && text[at] == ':') {
      do ++at;
      while (at < text.size() && isDigit(text[at]));
    }
    if (at < text.size() && text[at] != '/' && text[at] != '?' && text[at] != '#') return false;
  } else if (scheme == 0) {
    // The first segment of a relative path has no colon (section 4.2).
    if (const auto stop = text.find_first_of("/:"); stop != text.npos && text[stop] == ':') {
      if (text.find_first_of("?#") > stop) return false;
    }
  }
  at = skip(text, at, pathByte);
  if (at < text.size() && text[at] == '?') at = skip(text, at + 1, queryByte);
  if (at < text.size() && text[at] == '#') at = skip(text, at + 1, queryByte);
  return at == text.size();
}

// The two recognisers above take nothing that the general parser refuses.
bool isReference(std::string_view text) {
  if (isCommonAddress(text) || isPlainReference(text)) return true;
  // The general parser is only needed for these two bytes and builds a list in memory.
  if (text.find_first_of("[@") == text.npos) return false;
  UriUriA uri;
  if (uriParseSingleUriExA(&uri, text.data(), text.data() + text.size(), nullptr) != URI_SUCCESS) {
    return false;
  }
  uriFreeUriMembersA(&uri);
  return true;
}

struct Parts {
  std::optional<std::string_view> scheme;
  std::optional<std::string_view> authority;
  std::string_view path;
  std::optional<std::string_view> query;
  std::optional<std::string_view> fragment;
};

// The components of a valid reference (RFC 3986 appendix B).
Parts split(std::string_view text) {
  Parts parts;
  if (const std::size_t hash = text.find('#'); hash != text.npos) {
    parts.fragment = text.substr(hash + 1);
    text = text.substr(0, hash);
  }
  if (const std::size_t mark = text.find('?'); mark != text.npos) {
    parts.query = text.substr(mark + 1);
    text = text.substr(0, mark);
  }
  if (const std::size_t scheme = schemeLength(text); scheme != 0) {
    parts.scheme = text.substr(0, scheme);
    text.remove_prefix(scheme + 1);
  }
  if (text.starts_with("//")) {
    const std::size_t end = std::min(text.find('/', 2), text.size());
    parts.authority = text.substr(2, end - 2);
    text.remove_prefix(end);
  }
  parts.path = text;
  return parts;
}

// RFC 3986 section 5.3.
std::string join(const Parts& parts) {
  std::string text;
  if (parts.scheme) text.append(*parts.scheme).append(":");
  if (parts.authority) text.append("//").append(*parts.authority);
  text.append(parts.path);
  if (parts.query) text.append("?").append(*parts.query);
  if (parts.fragment) text.append("#").append(*parts.fragment);
  return text;
}

// RFC 3986 section 3.2, of a text that has been found valid.
struct Authority {
  std::optional<std::string_view> userInfo;
  std::string_view host;
  std::string_view port;
};

Authority splitAuthority(std::string_view text) {
  Authority authority;
  if (const std::size_t at = text.find('@'); at != text.npos) {
    authority.userInfo = text.substr(0, at);
    text.remove_prefix(at + 1);
  }
  // An IPv6 address has colons of its own, within brackets.
  const std::size_t hostEnd = text.starts_with('[') ? text.find(']') : 0;
  const std::size_t colon = text.find(':', hostEnd);
  authority.host = text.substr(0, colon);
  if (colon != text.npos) authority.port = text.substr(colon + 1);
  return authority;
}

std::string lowered(std::string_view text) {
  std::string result(text);
  for (char& c : result) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return result;
}

// RFC 3986 section 2.1: bytes as they are, so that text is encoded as its UTF-8.
std::string percentEncoded(std::string_view text, int kept, std::string_view alsoKept) {
  constexpr std::string_view digits = "0123456789ABCDEF";
  std::string result;
  result.reserve(text.size());
  for (const char c : text) {
    if (is(c, kept) || alsoKept.find(c) != alsoKept.npos) {
      result += c;
    } else {
      const auto byte = static_cast<unsigned char>(c);
      result += '%';
      result += digits[byte >> 4U];
      result += digits[byte & 15U];
    }
  }
  return result;
}

// RFC 3986 section 5.2.4.
std::string removingDotSegments(std::string_view path) {
  std::string output;
  while (!path.empty()) {
    if (path.starts_with("../")) {
      path.remove_prefix(3);
    } else if (path.starts_with("./") || path.starts_with("/./")) {
      path.remove_prefix(2);
    } else if (path == "/.") {
      path = "/";
    } else if (path.starts_with("/../") || path == "/..") {
      path = path.size() == 3 ? "/" : path.substr(3);
      output.resize(output.find_last_of('/') == output.npos ? 0 : output.find_last_of('/'));
    } else if (path == "." || path == "..") {
      path = {};
    } else {
      const std::size_t end = std::min(path.find('/', 1), path.size());
      output.append(path.substr(0, end));
      path.remove_prefix(end);
    }
  }
  return output;
}

// RFC 3986 section 5.2.3.
std::string mergedPath(const Parts& base, std::string_view path) {
  if (base.authority && base.path.empty()) return std::string("/").append(path);
  const std::size_t slash = base.path.rfind('/');
  const std::string_view folder =
      slash == base.path.npos ? std::string_view() : base.path.substr(0, slash + 1);
  return std::string(folder).append(path);
}

}  // namespace

std::optional<URL> URL::parse(std::string_view text) {
  if (text.empty() || !isReference(text)) return std::nullopt;
  return URL(text);
}

// Scheme and host are compared without regard to case (section 6.2.2.1): here they come in lower
// case.
std::string URL::scheme() const {
  return lowered(std::string_view(text_).substr(0, schemeLength(text_)));
}

std::string URL::host() const {
  return lowered(splitAuthority(split(text_).authority.value_or("")).host);
}

std::string URL::path() const { return std::string(split(text_).path); }

std::optional<std::string> URL::query() const {
  const auto query = split(text_).query;
  return query ? std::optional<std::string>(*query) : std::nullopt;
}

std::optional<std::string> URL::fragment() const {
  const auto fragment = split(text_).fragment;
  return fragment ? std::optional<std::string>(*fragment) : std::nullopt;
}

std::optional<std::string> URL::userInfo() const {
  const auto userInfo = splitAuthority(split(text_).authority.value_or("")).userInfo;
  return userInfo ? std::optional<std::string>(*userInfo) : std::nullopt;
}

std::optional<int> URL::port() const {
  const Parts parts = split(text_);
  const std::string_view digits = splitAuthority(parts.authority.value_or("")).port;
  // No port and an empty one both mean the scheme's own (section 3.2.3).
  if (digits.empty()) {
    const std::string name = scheme();
    if (name == "http") return 80;
    if (name == "https") return 443;
    return std::nullopt;
  }
  int value = 0;
  const auto [end, failure] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
  if (failure != std::errc() || end != digits.data() + digits.size() || value > 65535) {
    return std::nullopt;
  }
  return value;
}

// RFC 6454 section 4. Nothing for what has no host: two such URLs share no origin.
std::string URL::origin() const {
  const std::string schemeName = scheme();
  const std::string hostName = host();
  if (schemeName.empty() || hostName.empty()) return "";
  const auto number = port();
  return schemeName + "://" + hostName + ":" + (number ? std::to_string(*number) : "");
}

// One slash between the path and the component, whatever slashes they have.
URL URL::appendingPathComponent(std::string_view component) const {
  Parts parts = split(text_);
  while (parts.path.ends_with('/')) parts.path.remove_suffix(1);
  while (component.starts_with('/')) component.remove_prefix(1);
  const std::string path =
      std::string(parts.path).append("/").append(percentEncoded(component, pathByte, ""));
  parts.path = path;
  return URL(join(parts));
}

std::optional<URL> URL::replacingQueryItems(
    const std::vector<std::pair<std::string, std::string>>& items) const {
  std::string query;
  for (const auto& [name, value] : items) {
    if (!query.empty()) query += '&';
    query += percentEncoded(name, unreserved, ",") + "=" + percentEncoded(value, unreserved, ",");
  }
  Parts parts = split(text_);
  parts.query = items.empty() ? std::nullopt : std::optional<std::string_view>(query);
  return URL::parse(join(parts));
}

// RFC 3986 section 5.2.2, strictly: a reference with a scheme of its own is absolute.
std::optional<URL> URL::resolving(std::string_view reference) const {
  const Parts base = split(text_);
  if (!base.scheme || !isReference(reference)) return std::nullopt;

  Parts target = split(reference);
  std::string path;
  if (target.scheme || target.authority || target.path.starts_with('/')) {
    path = removingDotSegments(target.path);
  } else if (target.path.empty()) {
    path = base.path;
    if (!target.query) target.query = base.query;
  } else {
    path = removingDotSegments(mergedPath(base, target.path));
  }
  if (!target.scheme) {
    target.scheme = base.scheme;
    if (!target.authority) target.authority = base.authority;
  }
  // Without an authority a path must not look like one (section 3.3).
  if (!target.authority && path.starts_with("//")) {
    path = std::string("/.").append(path);
  }
  target.path = path;
  return URL::parse(join(target));
}

}  // namespace paperloom
