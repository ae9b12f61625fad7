#include <fmt/format.h>
#include <gtest/gtest.h>

#include "config/CLog.h"
#include "config/SerialDateHelper.h"
#include "support/Clock.h"
#include "support/VbDate.h"

namespace {
class ClockGuard : public ::testing::Test {
 protected:
  void TearDown() override { Clock::Reset(); }
};
}  // namespace

// Days counted from 30 December 1899, as the calendar has them: leap days, the century
// years that are not leap years (1900, 2100) and the one that is (2000).
TEST(DaySerialTest, KnownDaysOfTheCalendarAndRollOver) {
  CLog log;
  for (auto [y, m, d, lWant] : {std::tuple{1900, 1, 1, 2},
                                {1900, 2, 28, 60},
                                {1900, 3, 1, 61},
                                {1999, 12, 31, 36525},
                                {2000, 2, 29, 36585},
                                {2000, 3, 1, 36586},
                                {2010, 3, 14, 40251},
                                {2024, 2, 29, 45351},
                                {2038, 1, 19, 50424},
                                {2100, 2, 28, 73109},
                                {2100, 3, 1, 73110},
                                {2100, 12, 31, 73415}}) {
    const std::string serial = fmt::format("{:04d}{:02d}{:02d}", y, m, d);
    EXPECT_EQ(VbDate::DateSerial(y, m, d), lWant) << serial;
    EXPECT_EQ(log.GetDayFromSerial(serial), lWant) << serial;
    EXPECT_EQ(log.GetDateFolder(lWant), serial);
  }
  // Month 13 is January of the next year; a day past the month's end rolls into the next.
  for (auto [s, lWant] :
       {std::pair{"20091301", 40179}, {"20100229", 40238}, {"2010031", 0}, {"201003145", 0}, {"2010O314", 0}, {"", 0}})
    EXPECT_EQ(log.GetDayFromSerial(s), lWant) << s;
}

// From 1900 to 2100 the last day of each month is followed by the first of the next, and
// every day's folder name reads back as that day.
TEST(DaySerialTest, MonthsFollowEachOtherFrom1900To2100) {
  CLog log;
  static const int kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  for (int y = 1900; y <= 2100; ++y)
    for (int m = 1; m <= 12; ++m) {
      const bool bLeap = (y % 4 == 0 && y % 100 != 0) || y % 400 == 0;
      const int iLast = kDays[m - 1] + (m == 2 && bLeap ? 1 : 0);
      const std::string sLast = fmt::format("{:04d}{:02d}{:02d}", y, m, iLast);
      const std::string sNext = m == 12 ? fmt::format("{:04d}0101", y + 1) : fmt::format("{:04d}{:02d}01", y, m + 1);
      const int32_t lLast = log.GetDayFromSerial(sLast);
      ASSERT_EQ(log.GetDayFromSerial(sNext), lLast + 1) << sLast;
      ASSERT_EQ(log.GetDateFolder(lLast), sLast);
      ASSERT_EQ(VbDate::DateSerial(y, m, iLast), lLast) << sLast;
    }
}

TEST(LogInfoTest, AddHoursRollsOverDays) {
  const LogInfo li(40251, 13, 7);
  EXPECT_EQ(*li.AddHours(1008), LogInfo(40251 + 42, 13, 7));  // 42 days
  EXPECT_EQ(*li.AddHours(11), LogInfo(40252, 0, 7));
  EXPECT_EQ(*li.AddHours(-14), LogInfo(40250, 23, 7));
  EXPECT_EQ(*li.AddHours(-38), LogInfo(40249, 23, 7));
}

TEST_F(ClockGuard, NowFollowsTheClock) {
  Clock::SetFixed(VbDate::DateSerial(2010, 3, 14) + VbDate::TimeSerial(13, 59, 58));
  SDTime now = SerialDateHelper::Now();
  EXPECT_EQ(now.Date, 40251);
  EXPECT_FLOAT_EQ(now.Seconds, 13 * 3600 + 59 * 60 + 58);
  EXPECT_EQ(SerialDateHelper::Hour(now), 13);
  EXPECT_EQ(SerialDateHelper::TimeText(now, 2), "13:59:58");
  EXPECT_EQ(SerialDateHelper::TimeText(now, 4), "2010-03-14 13:59");
  Clock::Advance(3);
  now = SerialDateHelper::Now();
  EXPECT_EQ(SerialDateHelper::Hour(now), 14);
  EXPECT_EQ(SerialDateHelper::TimeText(now, 2), "14:00:01");
  Clock::Reset();  // back to the real time
  EXPECT_GT(SerialDateHelper::Now().Date, VbDate::DateSerial(2020, 1, 1));
}

TEST(SerialDateHelperTest, NormaliseCarriesWholeDays) {
  for (auto [fIn, lDate, fSeconds] :
       {std::tuple{99 * 3600.0f, 40255, 3 * 3600.0f}, {-3600.0f, 40250, 23 * 3600.0f}, {100.0f, 40251, 100.0f}}) {
    const SDTime n = SerialDateHelper::Normalise({40251, fIn});
    EXPECT_EQ(n.Date, lDate) << fIn;
    EXPECT_FLOAT_EQ(n.Seconds, fSeconds) << fIn;
  }
}

TEST(SerialDateHelperTest, ComparisonCountsTheMomentItself) {
  SDTime a{40251, 3600}, b{40251, 7200}, c{40252, 0};
  EXPECT_LT(SerialDateHelper::Compare(a, b), 0);
  EXPECT_GT(SerialDateHelper::Compare(c, b), 0);
  EXPECT_EQ(SerialDateHelper::Compare(a, a), 0);
  EXPECT_TRUE(SerialDateHelper::HasCome(b, a));
  EXPECT_TRUE(SerialDateHelper::HasCome(a, a));
  EXPECT_FALSE(SerialDateHelper::HasCome(a, b));
  EXPECT_EQ(SerialDateHelper::Compare({40251, 86400.0f}, {40252, 0}), 0);
  EXPECT_DOUBLE_EQ(SerialDateHelper::ToDate({40251, 43200}), 40251.5);
}
