#include "paperloom/platform/DateFormatter.h"

#include <algorithm>
#include <array>
#include <cstdio>

namespace paperloom {
namespace {

using std::chrono::hours;
using std::chrono::minutes;
using std::chrono::seconds;

// Whether `text` has the shape of `pattern`, in which 9 stands for any digit.
bool hasShape(std::string_view text, std::string_view pattern) {
  return std::equal(text.begin(), text.end(), pattern.begin(), pattern.end(),
                    [](char c, char p) { return p == '9' ? c >= '0' && c <= '9' : c == p; });
}

int digits(std::string_view text, std::size_t from, std::size_t count) {
  int value = 0;
  for (const char c : text.substr(from, count)) value = value * 10 + (c - '0');
  return value;
}

// Z, +hh:mm or -hh:mm.
std::optional<minutes> offset(std::string_view text) {
  if (text == "Z") return minutes(0);
  if (!hasShape(text, "+99:99") && !hasShape(text, "-99:99")) return std::nullopt;
  const int hour = digits(text, 1, 2);
  const int minute = digits(text, 4, 2);
  // RFC 3339 section 5.6: an offset is a time of the day.
  if (hour > 23 || minute > 59) return std::nullopt;
  const minutes value = hours(hour) + minutes(minute);
  return text.front() == '-' ? -value : value;
}

}  // namespace

// Nothing in it changes, so that sharing it needs no lock.
const DateFormatter& DateFormatter::shared() {
  static const DateFormatter formatter;
  return formatter;
}

std::optional<Date> DateFormatter::date(std::string_view text) const {
  constexpr std::string_view shape = "9999-99-99T99:99:99";
  if (!hasShape(text.substr(0, shape.size()), shape)) return std::nullopt;
  const auto zone = offset(text.substr(shape.size()));
  const std::chrono::year_month_day day{
      std::chrono::year(digits(text, 0, 4)),
      std::chrono::month(static_cast<unsigned>(digits(text, 5, 2))),
      std::chrono::day(static_cast<unsigned>(digits(text, 8, 2)))};
  const int hour = digits(text, 11, 2);
  const int minute = digits(text, 14, 2);
  const int second = digits(text, 17, 2);
  // The 30th of February, the hour 24 and a leap second have the shape and are no dates.
  if (!zone || !day.ok() || hour > 23 || minute > 59 || second > 59) return std::nullopt;
  return std::chrono::sys_days(day) + hours(hour) + minutes(minute) + seconds(second) - *zone;
}

std::string DateFormatter::string(Date date) const {
  using namespace std::chrono_literals;
  constexpr Date first = std::chrono::sys_days(0y / 1 / 1);
  constexpr Date last = std::chrono::sys_days(9999y / 12 / 31) + 23h + 59min + 59s;
  const auto instant = std::chrono::floor<seconds>(std::clamp(date, first, last));
  const auto midnight = std::chrono::floor<std::chrono::days>(instant);
  const std::chrono::year_month_day day(midnight);
  const std::chrono::hh_mm_ss time(instant - midnight);

  std::array<char, 64> text{};
  std::snprintf(text.data(), text.size(), "%04d-%02u-%02uT%02d:%02d:%02dZ", int(day.year()),
                unsigned(day.month()), unsigned(day.day()), static_cast<int>(time.hours().count()),
                static_cast<int>(time.minutes().count()), static_cast<int>(time.seconds().count()));
  return text.data();
}

}  // namespace paperloom
