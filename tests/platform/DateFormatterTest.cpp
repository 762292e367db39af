#include "paperloom/platform/DateFormatter.h"

#include <gtest/gtest.h>

#include "tests/support/Split.h"

namespace paperloom::test {
namespace {

TEST(DateFormatterTest, instantsAreReadByTheirOffset) {
  const std::pair<const char*, const char*> table[] = {
      {"2018-03-01T14:05:09Z", "2018-03-01T14:05:09Z"},
      {"2018-03-01T14:05:09+00:00", "2018-03-01T14:05:09Z"},
      {"2018-03-01T14:05:09-00:00", "2018-03-01T14:05:09Z"},
      {"2018-03-01T14:05:09+01:00", "2018-03-01T13:05:09Z"},
      {"2018-12-31T23:59:59-05:30", "2019-01-01T05:29:59Z"},
      {"2020-02-29T00:00:00+14:00", "2020-02-28T10:00:00Z"},
      {"1969-12-31T23:59:59Z", "1969-12-31T23:59:59Z"},
      {"0001-01-01T00:00:00Z", "0001-01-01T00:00:00Z"},
      {"9999-12-31T23:59:59Z", "9999-12-31T23:59:59Z"},
  };
  for (const auto& [text, utc] : table) {
    const auto date = DateFormatter::shared().date(text);
    ASSERT_TRUE(date) << text;
    EXPECT_EQ(DateFormatter::shared().string(*date), utc);
  }
  EXPECT_EQ(secondsSince1970(*DateFormatter::shared().date("2018-03-01T14:05:09Z")), 1519913109.0);
}

TEST(DateFormatterTest, otherFormsAndTimesThatDoNotExistAreRefused) {
  for (const std::string& text : test::split(
           "|2018-03-01|01/03/2018|2018-03-01 14:05|2018-03-01T14:05:09|2018-03-01T14:05:09z|"
           "2018-03-01t14:05:09Z|2018-03-01 14:05:09Z|2018-03-01T14:05:09.5Z|2018-03-01T14:05Z|"
           "2018-3-1T14:05:09Z|12018-03-01T14:05:09Z|+018-03-01T14:05:09Z| 2018-03-01T14:05:09Z|"
           "2018-03-01T14:05:09Z |2018-03-01T14:05:09 Z|2018-03-01T14:05:09+0100|"
           "2018-03-01T14:05:09+01|2018-03-01T14:05:09+01:00:00|2018-03-01T14:05:09+24:00|"
           "2018-03-01T14:05:09+01:60|2018-03-01T14:05:09GMT|2018-02-29T14:05:09Z|"
           "1900-02-29T14:05:09Z|2018-00-01T14:05:09Z|2018-13-01T14:05:09Z|2018-04-31T14:05:09Z|"
           "2018-03-00T14:05:09Z|2018-03-01T24:00:00Z|2018-03-01T14:60:09Z|2016-12-31T23:59:60Z")) {
    EXPECT_FALSE(DateFormatter::shared().date(text)) << text;
  }
}

TEST(DateFormatterTest, instantsOutsideFourDigitYearsAreWrittenAsTheNearestInside) {
  EXPECT_EQ(DateFormatter::shared().string(Date::min()), "0000-01-01T00:00:00Z");
  EXPECT_EQ(DateFormatter::shared().string(Date::max()), "9999-12-31T23:59:59Z");
}

}  // namespace
}  // namespace paperloom::test
