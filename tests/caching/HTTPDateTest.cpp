#include "paperloom/platform/internal/http/HTTPDate.h"

#include <gtest/gtest.h>

#include <array>
#include <ctime>

#include "tests/caching/CachingFixture.h"
#include "tests/support/Split.h"

namespace paperloom::test {
namespace {

using internal::formatHTTPDate;
using internal::parseHTTPDate;

TEST(HTTPDateTest, isReadInItsThreeFormsWhateverTheCase) {
  for (const char* text :
       {"Sun, 06 Nov 1994 08:49:37 GMT", "Sunday, 06-Nov-94 08:49:37 GMT",
        "Sun Nov  6 08:49:37 1994", "sUN, 06 nOV 1994 08:49:37 gmt", "Sun Nov 06 08:49:37 1994"}) {
    const auto date = parseHTTPDate(text, noon);
    ASSERT_TRUE(date) << text;
    EXPECT_EQ(formatHTTPDate(*date), "Sun, 06 Nov 1994 08:49:37 GMT") << text;
  }
}

TEST(HTTPDateTest, isNothingElse) {
  for (const std::string& text : split(
           "|0|-1|Sun|Sun, 06 Nov 1994 08:49:37|Sun, 06 Nov 1994 08:49:37 UTC|"
           "Sun, 06 Nov 1994 08:49:37 +0000|Sun 06 Nov 1994 08:49:37 GMT|"
           "Sun, 06  Nov  1994 08:49:37 GMT|Sun, 06-Nov-1994 08:49:37 GMT|"
           "Sun, 6 Nov 1994 08:49:37 GMT|Sun, 06 Nov 94 08:49:37 GMT|Sun, 06 Nov 1994 8:49:37 GMT|"
           "Sun, 06 Nov 1994 08.49.37 GMT|Sun, 06 Nov 1994 08:49:37 GMT |"
           "Thu, 30 Feb 2023 08:49:37 GMT|Sun, 06 Nov 1994 24:00:00 GMT|"
           "Sun, 06 Nov 1994 08:60:37 GMT|Sun, 06 Nov 1994 08:49:61 GMT|Sun, 06 Nov -994 08:49:37 "
           "GMT|1994-11-06T08:49:37Z|"
           "784111777")) {
    EXPECT_FALSE(parseHTTPDate(text, noon)) << text;
  }
}

TEST(HTTPDateTest, ofEveryDayAndSecondComesBackAndTheOtherYearsAreCutOff) {
  for (Date date = noon; date < noon + std::chrono::hours(24 * 400);
       date += std::chrono::hours(23) + std::chrono::seconds(59 * 61)) {
    const std::time_t seconds = std::chrono::system_clock::to_time_t(date);
    std::array<char, 30> text{};
    std::strftime(text.data(), text.size(), "%a, %d %b %Y %H:%M:%S GMT", std::gmtime(&seconds));
    EXPECT_EQ(formatHTTPDate(date), text.data());
    EXPECT_EQ(parseHTTPDate(text.data(), noon), date) << text.data();
  }
  EXPECT_EQ(formatHTTPDate(noon), "Fri, 01 Mar 2024 12:00:00 GMT");
  EXPECT_EQ(formatHTTPDate(Date::min()), "Sat, 01 Jan 0000 00:00:00 GMT");
  EXPECT_EQ(formatHTTPDate(Date::max()), "Fri, 31 Dec 9999 23:59:59 GMT");
  EXPECT_EQ(parseHTTPDate("Fri, 01 Mar 2024 11:59:60 GMT", noon), noon);  // a leap second
}

TEST(HTTPDateTest, takesAYearOfTwoDigitsForTheLastOneNotFiftyYearsAhead) {
  struct Case {
    const char* text;
    Date now;
    const char* meant;
  };
  for (const Case& c :
       {Case{"Friday, 01-Mar-74 00:00:00 GMT", noon, "Thu, 01 Mar 2074 00:00:00 GMT"},
        Case{"Friday, 01-Mar-75 00:00:00 GMT", noon, "Sat, 01 Mar 1975 00:00:00 GMT"},
        Case{"Friday, 01-Mar-75 00:00:00 GMT", Date::max(), "Mon, 01 Mar 9875 00:00:00 GMT"},
        Case{"Friday, 01-Mar-75 00:00:00 GMT", Date::min(), "Fri, 01 Mar 0075 00:00:00 GMT"}}) {
    const auto date = parseHTTPDate(c.text, c.now);
    ASSERT_TRUE(date) << c.text;
    EXPECT_EQ(formatHTTPDate(*date), c.meant);
  }
}

}  // namespace
}  // namespace paperloom::test
