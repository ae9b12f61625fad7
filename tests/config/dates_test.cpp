#include <fmt/format.h>
#include <gtest/gtest.h>

#include "config/CLog.h"
#include "config/SerialDateHelper.h"
#include "support/Clock.h"
#include "support/VbDate.h"

namespace {
// Days from 1970-01-01 of a proleptic Gregorian date (an independent reckoning).
int64_t DaysFromCivil(int64_t y, unsigned m, unsigned d) {
  y -= m <= 2;
  const int64_t era = (y >= 0 ? y : y - 399) / 400;
  const unsigned yoe = static_cast<unsigned>(y - era * 400);
  const unsigned doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
  const unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
  return era * 146097 + static_cast<int64_t>(doe) - 719468;
}
const int64_t kDay0 = DaysFromCivil(1899, 12, 30);

class ClockGuard : public ::testing::Test {
 protected:
  void TearDown() override { Clock::Reset(); }
};
}  // namespace

TEST(DaySerialTest, AgreesWithTheCalendarFrom1900To2100) {
  CLog log;
  static const unsigned kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  for (int y = 1900; y <= 2100; ++y) {
    bool leap = (y % 4 == 0 && y % 100 != 0) || y % 400 == 0;
    for (unsigned m = 1; m <= 12; ++m) {
      unsigned last = kDays[m - 1] + (m == 2 && leap ? 1 : 0);
      for (unsigned d : {1u, 15u, last}) {
        int64_t want = DaysFromCivil(y, m, d) - kDay0;
        ASSERT_EQ(VbDate::DateSerial(y, static_cast<int>(m), static_cast<int>(d)), want) << y << "-" << m << "-" << d;
        std::string serial = fmt::format("{:04d}{:02d}{:02d}", y, m, d);
        ASSERT_EQ(log.GetDayFromSerial(serial), want) << serial;
        ASSERT_EQ(log.GetDateFolder(static_cast<int32_t>(want)), serial);
      }
    }
  }
}

TEST(DaySerialTest, KnownDaysAndRollOver) {
  CLog log;
  // Month 13 is January of the next year; a day past the month's end rolls into the next.
  for (auto [s, lWant] : {std::pair{"20100101", 40179}, {"20100314", 40251}, {"20091301", 40179}, {"20100229", 40238},
                          {"2010031", 0}, {"201003145", 0}, {"2010O314", 0}, {"", 0}})
    EXPECT_EQ(log.GetDayFromSerial(s), lWant) << s;
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
  for (auto [fIn, lDate, fSeconds] : {std::tuple{99 * 3600.0f, 40255, 3 * 3600.0f}, {-3600.0f, 40250, 23 * 3600.0f},
                                      {100.0f, 40251, 100.0f}}) {
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
