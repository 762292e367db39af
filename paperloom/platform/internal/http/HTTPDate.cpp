#include "paperloom/platform/internal/http/HTTPDate.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <span>

#include "paperloom/platform/HTTPHeaders.h"

namespace paperloom::internal {
namespace {

using namespace std::chrono;

constexpr std::array<std::string_view, 7> dayNames{"Sunday",   "Monday", "Tuesday", "Wednesday",
                                                   "Thursday", "Friday", "Saturday"};
constexpr std::array<std::string_view, 12> monthNames{"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                                      "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

// Takes a text apart from the left; after the first thing that is not there, nothing is.
class Scanner {
 public:
  explicit Scanner(std::string_view text) : rest_(text) {}

  void literal(std::string_view text) {
    if (!ok_ || !equalsIgnoringCase(rest_.substr(0, text.size()), text)) return fail();
    rest_.remove_prefix(text.size());
  }

  // The number of the name that comes next, from 0; only the first `length` letters when not 0.
  unsigned name(std::span<const std::string_view> names, std::size_t length = 0) {
    for (unsigned i = 0; i < names.size() && ok_; ++i) {
      const std::string_view name = length == 0 ? names[i] : names[i].substr(0, length);
      if (equalsIgnoringCase(rest_.substr(0, name.size()), name)) {
        rest_.remove_prefix(name.size());
        return i;
      }
    }
    fail();
    return 0;
  }

  // A number of exactly that many digits.
  int number(std::size_t digits) {
    if (!ok_ || rest_.size() < digits) return fail(), 0;
    int value = 0;
    for (const char c : rest_.substr(0, digits)) {
      if (c < '0' || c > '9') return fail(), 0;
      value = value * 10 + (c - '0');
    }
    rest_.remove_prefix(digits);
    return value;
  }

  bool startsWith(char c) const { return ok_ && !rest_.empty() && rest_.front() == c; }
  bool finished() const { return ok_ && rest_.empty(); }

 private:
  void fail() { ok_ = false; }

  std::string_view rest_;
  bool ok_ = true;
};

struct Fields {
  int year = 0;
  unsigned month = 0;
  int day = 0;
  int hour = 0;
  int minute = 0;
  int second = 0;
};

void scanTime(Scanner& scanner, Fields& fields) {
  fields.hour = scanner.number(2);
  scanner.literal(":");
  fields.minute = scanner.number(2);
  scanner.literal(":");
  fields.second = scanner.number(2);
}

// "Sun, 06 Nov 1994 08:49:37 GMT", the only one that is sent today (RFC 9110 section 5.6.7).
std::optional<Fields> scanFixdate(std::string_view text) {
  Scanner scanner(text);
  Fields fields;
  scanner.name(dayNames, 3);
  scanner.literal(", ");
  fields.day = scanner.number(2);
  scanner.literal(" ");
  fields.month = scanner.name(monthNames) + 1;
  scanner.literal(" ");
  fields.year = scanner.number(4);
  scanner.literal(" ");
  scanTime(scanner, fields);
  scanner.literal(" GMT");
  if (!scanner.finished()) return std::nullopt;
  return fields;
}

// "Sunday, 06-Nov-94 08:49:37 GMT". Two digits of a year that would lie more than 50 years ahead
// mean the latest year in the past that ends like them (the same section).
std::optional<Fields> scanRFC850(std::string_view text, Date now) {
  Scanner scanner(text);
  Fields fields;
  scanner.name(dayNames);
  scanner.literal(", ");
  fields.day = scanner.number(2);
  scanner.literal("-");
  fields.month = scanner.name(monthNames) + 1;
  scanner.literal("-");
  const int lastDigits = scanner.number(2);
  scanner.literal(" ");
  scanTime(scanner, fields);
  scanner.literal(" GMT");
  if (!scanner.finished()) return std::nullopt;
  // A damaged entry may name any instant; the guess stays within years of four digits.
  constexpr Date first{sys_days(year(100) / 1 / 1)};
  constexpr Date last{sys_days(year(9900) / 1 / 1)};
  const year_month_day today(floor<days>(std::clamp(now, first, last)));
  const int thisYear = static_cast<int>(today.year());
  fields.year = thisYear - thisYear % 100 + lastDigits;
  if (fields.year > thisYear + 50) fields.year -= 100;
  if (fields.year <= thisYear - 50) fields.year += 100;
  return fields;
}

// "Sun Nov  6 08:49:37 1994", with a blank for the first digit of the day.
std::optional<Fields> scanAsctime(std::string_view text) {
  Scanner scanner(text);
  Fields fields;
  scanner.name(dayNames, 3);
  scanner.literal(" ");
  fields.month = scanner.name(monthNames) + 1;
  scanner.literal(" ");
  if (scanner.startsWith(' ')) {
    scanner.literal(" ");
    fields.day = scanner.number(1);
  } else {
    fields.day = scanner.number(2);
  }
  scanner.literal(" ");
  scanTime(scanner, fields);
  scanner.literal(" ");
  fields.year = scanner.number(4);
  if (!scanner.finished()) return std::nullopt;
  return fields;
}

std::optional<Date> instant(const Fields& fields) {
  const year_month_day date(year(fields.year), month(fields.month),
                            day(static_cast<unsigned>(fields.day)));
  // A leap second is a valid time (60); it counts as the next minute's first.
  if (!date.ok() || fields.hour > 23 || fields.minute > 59 || fields.second > 60) {
    return std::nullopt;
  }
  return sys_days(date) + hours(fields.hour) + minutes(fields.minute) + seconds(fields.second);
}

}  // namespace

std::optional<Date> parseHTTPDate(std::string_view text, Date now) {
  std::optional<Fields> fields = scanFixdate(text);
  if (!fields) fields = scanRFC850(text, now);
  if (!fields) fields = scanAsctime(text);
  if (!fields) return std::nullopt;
  return instant(*fields);
}

std::string formatHTTPDate(Date date) {
  constexpr sys_seconds first{sys_days(year(0) / 1 / 1)};
  constexpr sys_seconds last{sys_days(year(10000) / 1 / 1) - seconds(1)};
  const sys_seconds second = std::clamp(floor<seconds>(date), first, last);
  const sys_days midnight = floor<days>(second);
  const year_month_day day(midnight);
  const hh_mm_ss time(second - midnight);
  const std::string_view dayName = dayNames[weekday(midnight).c_encoding()];
  const std::string_view monthName = monthNames[static_cast<unsigned>(day.month()) - 1];
  std::array<char, 64> text{};
  const int length = std::snprintf(
      text.data(), text.size(), "%.3s, %02u %s %04d %02d:%02d:%02d GMT", dayName.data(),
      static_cast<unsigned>(day.day()), monthName.data(), static_cast<int>(day.year()),
      static_cast<int>(time.hours().count()), static_cast<int>(time.minutes().count()),
      static_cast<int>(time.seconds().count()));
  return std::string(text.data(), static_cast<std::size_t>(std::max(length, 0)));
}

}  // namespace paperloom::internal
