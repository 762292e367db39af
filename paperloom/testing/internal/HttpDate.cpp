#include "paperloom/testing/internal/HttpDate.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <string_view>

namespace paperloom::sample {
namespace {

constexpr std::array<const char*, 12> monthNames = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                                    "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

}  // namespace

std::string httpDate(std::time_t time) {
  static constexpr std::array<const char*, 7> days = {"Sun", "Mon", "Tue", "Wed",
                                                      "Thu", "Fri", "Sat"};
  std::tm parts{};
  gmtime_r(&time, &parts);
  std::array<char, 64> text{};
  std::snprintf(text.data(), text.size(), "%s, %02d %s %04d %02d:%02d:%02d GMT",
                days[static_cast<std::size_t>(parts.tm_wday)], parts.tm_mday,
                monthNames[static_cast<std::size_t>(parts.tm_mon)], parts.tm_year + 1900,
                parts.tm_hour, parts.tm_min, parts.tm_sec);
  return text.data();
}

std::optional<std::time_t> readHttpDate(const std::string& text) {
  std::tm parts{};
  std::array<char, 4> month{};
  if (std::sscanf(text.c_str(), "%*3s, %2d %3s %4d %2d:%2d:%2d GMT", &parts.tm_mday, month.data(),
                  &parts.tm_year, &parts.tm_hour, &parts.tm_min, &parts.tm_sec) != 6) {
    return std::nullopt;
  }
  const auto name = std::find_if(monthNames.begin(), monthNames.end(), [&](const char* known) {
    return month.data() == std::string_view(known);
  });
  if (name == monthNames.end()) return std::nullopt;
  parts.tm_mon = static_cast<int>(name - monthNames.begin());
  parts.tm_year -= 1900;
  return timegm(&parts);
}

}  // namespace paperloom::sample
