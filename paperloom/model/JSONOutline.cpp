#include "paperloom/model/internal/JSONOutline.h"

#include <algorithm>
#include <array>
#include <cstdlib>

#include "paperloom/platform/JSON.h"

namespace paperloom {
namespace {

constexpr int deepest = 1024;  // as for the decoder

bool isDigit(char c) { return c >= '0' && c <= '9'; }
bool isHexDigit(char c) { return isDigit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F'); }

// How long the character is that begins there; 0 when it is no UTF-8 (RFC 3629 section 4).
std::size_t characterLength(std::string_view text, std::size_t at) {
  const auto byte = [&](std::size_t i) -> unsigned {
    return at + i < text.size() ? static_cast<unsigned char>(text[at + i]) : 0U;
  };
  const unsigned first = byte(0);
  if (first < 0x80U) return 1;
  const std::size_t length = first >= 0xF0U ? 4 : first >= 0xE0U ? 3 : 2;
  unsigned least = 0x80U;
  unsigned most = 0xBFU;
  if (first == 0xE0U) least = 0xA0U;
  if (first == 0xEDU) most = 0x9FU;
  if (first == 0xF0U) least = 0x90U;
  if (first == 0xF4U) most = 0x8FU;
  if (first < 0xC2U || first > 0xF4U || byte(1) < least || byte(1) > most) return 0;
  for (std::size_t i = 2; i < length; ++i) {
    if ((byte(i) & 0xC0U) != 0x80U) return 0;
  }
  return length;
}

}  // namespace

// RFC 8259, from the front to the first fault.
class JSONOutline::Scanner {
 public:
  explicit Scanner(JSONOutline& outline) : outline_(outline), text_(outline.text_) {}

  void run() {
    if (text_.starts_with("\xEF\xBB\xBF")) at_ = 3;
    skipSpace();
    const Node node = add(none, 0);
    const bool whole = value(node, 0);
    skipSpace();
    if (!whole || at_ < text_.size()) outline_.fault_ = std::min(at_, text_.size());
  }

 private:
  char peek() const { return at_ < text_.size() ? text_[at_] : '\0'; }

  bool take(char c) {
    if (at_ >= text_.size() || text_[at_] != c) return false;
    ++at_;
    return true;
  }

  void skipSpace() { at_ = std::min(text_.find_first_not_of(" \t\r\n", at_), text_.size()); }

  Node add(Node parent, std::uint32_t index) {
    const auto at = static_cast<std::uint32_t>(at_);
    outline_.entries_.push_back({parent, none, index, at, at});
    return static_cast<Node>(outline_.entries_.size() - 1);
  }

  void link(Node& last, Node node) {
    if (last != none) outline_.entries_[last].next = node;
    last = node;
  }

  bool value(Node node, int depth) {
    switch (peek()) {
      case '{':
        outline_.objects_.push_back(node);
        return depth < deepest && object(node, depth + 1);
      case '[':
        return depth < deepest && list(node, depth + 1);
      default:
        return scalar();
    }
  }

  bool object(Node node, int depth) {
    ++at_;
    skipSpace();
    if (take('}')) return true;
    Node last = none;
    do {
      skipSpace();
      const Node member = add(node, 0);
      link(last, member);
      if (!string()) return false;
      skipSpace();
      if (!take(':')) return false;
      skipSpace();
      outline_.entries_[member].value = static_cast<std::uint32_t>(at_);
      if (!value(member, depth)) return false;
      skipSpace();
    } while (take(','));
    return take('}');
  }

  bool list(Node node, int depth) {
    ++at_;
    skipSpace();
    if (take(']')) return true;
    Node last = none;
    char before = '\0';
    std::uint32_t index = 0;
    do {
      skipSpace();
      const char kind = isDigit(peek()) ? '-' : peek();
      if (kind == '{' || kind == '[' || kind != before) {
        const Node element = add(node, index);
        link(last, element);
        if (!value(element, depth)) return false;
      } else if (!scalar()) {
        return false;
      }
      before = kind;
      ++index;
      skipSpace();
    } while (take(','));
    return take(']');
  }

  bool scalar() {
    switch (peek()) {
      case '"':
        return string();
      case 't':
        return literal("true");
      case 'f':
        return literal("false");
      case 'n':
        return literal("null");
      default:
        return number();
    }
  }

  bool literal(std::string_view word) {
    for (const char c : word) {
      if (!take(c)) return false;
    }
    return true;
  }

  bool digits() {
    const std::size_t start = at_;
    while (isDigit(peek())) ++at_;
    return at_ > start;
  }

  bool number() {
    take('-');
    if (!take('0') && !digits()) return false;
    if (take('.') && !digits()) return false;
    if (!take('e') && !take('E')) return true;
    if (!take('+')) take('-');
    return digits();
  }

  // Half of a surrogate pair is no character.
  bool unicodeEscape() {
    const std::size_t start = at_;
    const auto unit = [&]() -> int {
      if (!take('u')) return -1;
      for (int i = 0; i < 4; ++i, ++at_) {
        if (!isHexDigit(peek())) return -1;
      }
      return static_cast<int>(
          std::strtol(std::string(text_.substr(at_ - 4, 4)).c_str(), nullptr, 16));
    };
    const int first = unit();
    if (first < 0) return false;
    if (first < 0xD800 || first > 0xDFFF) return true;
    if (first < 0xDC00 && take('\\')) {
      const int second = unit();
      if (second >= 0xDC00 && second <= 0xDFFF) return true;
    }
    at_ = start;
    return false;
  }

  bool string() {
    if (!take('"')) return false;
    while (at_ < text_.size()) {
      const char c = text_[at_];
      if (c == '"') return take('"');
      if (c == '\\') {
        ++at_;
        if (peek() == 'u') {
          if (!unicodeEscape()) return false;
          continue;
        }
        if (peek() == '\0' ||
            std::string_view("\"\\/bfnrt").find(peek()) == std::string_view::npos) {
          return false;
        }
        ++at_;
        continue;
      }
      const std::size_t length = characterLength(text_, at_);
      if (static_cast<unsigned char>(c) < 0x20U || length == 0) return false;
      at_ += length;
    }
    return false;
  }

  JSONOutline& outline_;
  std::string_view text_;
  std::size_t at_ = 0;
};

JSONOutline::JSONOutline(std::string_view text) : text_(text) { Scanner(*this).run(); }

JSONOutline::Node JSONOutline::firstChild(Node node) const {
  const Node child = node + 1;
  return child < entries_.size() && entries_[child].parent == node ? child : none;
}

JSONOutline::Node JSONOutline::member(Node object, std::string_view key) const {
  Node member = firstChild(object);
  while (member != none && this->key(member) != key) member = next(member);
  return member;
}

std::string JSONOutline::unescaped(std::size_t quote) const {
  std::size_t end = quote + 1;
  bool escapes = false;
  for (; text_[end] != '"'; ++end) {
    if (text_[end] != '\\') continue;
    escapes = true;
    ++end;
  }
  const std::string_view raw = text_.substr(quote, end + 1 - quote);
  if (!escapes) return std::string(raw.substr(1, raw.size() - 2));
  const auto document = JSONDocument::parse("{\"\":" + std::string(raw) + "}");
  return document ? document->object()->string("").value_or("") : "";
}

std::string JSONOutline::key(Node member) const { return unescaped(entries_[member].at); }

std::optional<std::string> JSONOutline::text(Node node) const {
  if (kind(node) != '"') return std::nullopt;
  return unescaped(entries_[node].value);
}

std::optional<double> JSONOutline::number(Node node) const {
  if (kind(node) != '-' && !isDigit(kind(node))) return std::nullopt;
  const std::string_view rest = text_.substr(entries_[node].value);
  return std::strtod(std::string(rest.substr(0, rest.find_first_not_of("0123456789+-.eE"))).c_str(),
                     nullptr);
}

std::string JSONOutline::path(Node node) const {
  std::vector<Node> way;
  for (; parent(node) != none; node = parent(node)) way.push_back(node);
  std::string path;
  for (auto step = way.rbegin(); step != way.rend(); ++step) {
    path += '/';
    if (kind(parent(*step)) == '[') {
      path += std::to_string(entries_[*step].index);
      continue;
    }
    for (const char c : key(*step)) path += c == '~' ? "~0" : c == '/' ? "~1" : std::string(1, c);
  }
  return path;
}

}  // namespace paperloom
