#include "paperloom/model/internal/Reading.h"

#include "paperloom/platform/DateFormatter.h"

namespace paperloom {

std::optional<URL> urlUnder(const JSONObject& json, std::string_view key) {
  const auto text = json.stringView(key);
  auto url = text ? URL::parse(*text) : std::nullopt;
  if (text && !url) refuse(json, key, rule::invalidURL);
  return url;
}

std::optional<Date> dateUnder(const JSONObject& json, std::string_view key) {
  const auto text = json.stringView(key);
  const auto date = text ? DateFormatter::shared().date(*text) : std::nullopt;
  if (text && !date) refuse(json, key, rule::invalidDate);
  return date;
}

}  // namespace paperloom
