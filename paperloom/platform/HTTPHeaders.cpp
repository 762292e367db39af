#include "paperloom/platform/HTTPHeaders.h"

#include <algorithm>

namespace paperloom {
namespace {

// Not tolower(), which goes by the locale of the host.
char lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c; }

}  // namespace

bool equalsIgnoringCase(std::string_view a, std::string_view b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [](char x, char y) { return lower(x) == lower(y); });
}

void HTTPHeaders::add(std::string name, std::string value) {
  fields_.emplace_back(std::move(name), std::move(value));
}

void HTTPHeaders::set(std::string name, std::string value) {
  remove(name);
  add(std::move(name), std::move(value));
}

void HTTPHeaders::remove(std::string_view name) {
  std::erase_if(fields_, [&](const Field& field) { return equalsIgnoringCase(field.first, name); });
}

// Linear, as messages have a few dozen fields, and the order in which they came counts.
bool HTTPHeaders::contains(std::string_view name) const { return first(name).has_value(); }

std::optional<std::string_view> HTTPHeaders::first(std::string_view name) const {
  for (const Field& field : fields_) {
    if (equalsIgnoringCase(field.first, name)) return field.second;
  }
  return std::nullopt;
}

std::vector<std::string_view> HTTPHeaders::all(std::string_view name) const {
  std::vector<std::string_view> values;
  for (const Field& field : fields_) {
    if (equalsIgnoringCase(field.first, name)) values.push_back(field.second);
  }
  return values;
}

// RFC 9110 section 5.3: several lines of one name mean the list of their values.
std::optional<std::string> HTTPHeaders::combined(std::string_view name) const {
  std::optional<std::string> joined;
  for (const std::string_view value : all(name)) {
    if (joined) {
      joined->append(", ").append(value);
    } else {
      joined.emplace(value);
    }
  }
  return joined;
}

}  // namespace paperloom
