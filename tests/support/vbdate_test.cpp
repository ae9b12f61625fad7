#include "support/VbDate.h"

#include <gtest/gtest.h>

// Known days and the calendar from 1900 to 2100 are checked against an independent
// reckoning in the day-serial tests of the logger; here the edges and the split.
TEST(VbDateTest, DaySerialAgreesWithTheCalendar) {
  EXPECT_EQ(VbDate::DateSerial(1899, 12, 30), 0);
  EXPECT_EQ(VbDate::DateSerial(2000, 2, 29) + 1, VbDate::DateSerial(2000, 3, 1));
  EXPECT_EQ(VbDate::DateSerial(2100, 2, 28) + 1, VbDate::DateSerial(2100, 3, 1));  // 2100 is no leap year
  // Months and days roll over.
  EXPECT_EQ(VbDate::DateSerial(2010, 0, 1), VbDate::DateSerial(2009, 12, 1));
  EXPECT_EQ(VbDate::DateSerial(2010, 1, 32), VbDate::DateSerial(2010, 2, 1));
  EXPECT_EQ(VbDate::DateSerial(2010, 3, 0), VbDate::DateSerial(2010, 2, 28));
  // Every day from 1900 to 2100 splits back to itself.
  for (int32_t d = VbDate::DateSerial(1900, 1, 1); d <= VbDate::DateSerial(2100, 12, 31); d += 1) {
    VbDate::Parts p = VbDate::Split(d);
    ASSERT_EQ(VbDate::DateSerial(p.Year, p.Month, p.Day), d);
  }
}

TEST(VbDateTest, TimeAndText) {
  double d = VbDate::Make({2010, 3, 14, 13, 5, 9});
  EXPECT_EQ(VbDate::Hour(d), 13);
  EXPECT_EQ(VbDate::Minute(d), 5);
  EXPECT_EQ(VbDate::DayOf(d), 40251);
  EXPECT_EQ(VbDate::DefaultText(d), "2010-03-14 13:05:09");
  for (auto [sFormat, sWant] :
       {std::pair{"yyyymmdd", "20100314"}, {"dddd, d mmmm yyyy", "Sunday, 14 March 2010"}, {"hh:nn:ss", "13:05:09"}})
    EXPECT_EQ(VbDate::Format(d, sFormat), sWant);
  // 23:59:59.6 rounds to the next day's midnight, as a date value does.
  double late = VbDate::DateSerial(2010, 3, 14) + (86399.6 / 86400.0);
  EXPECT_EQ(VbDate::DefaultText(late), "2010-03-15 00:00:00");
}
