#include <gtest/gtest.h>

#include <filesystem>

#include "audio/CAudioNull.h"
#include "config/CLog.h"
#include "config/ConfigTestUtil.h"
#include "support/CNVErr.h"
#include "support/Clock.h"
#include "support/VbDate.h"

namespace {
// A format that answers DataSize with a rate and remembers the seconds asked for.
class FakeFormat : public CAudioNull {
 public:
  explicit FakeFormat(double dBytesPerSec) : m_dRate(dBytesPerSec) {}
  int32_t FormatType() override { return 2; }
  double DataSize(float fSeconds) override {
    LastSeconds = fSeconds;
    return fSeconds * m_dRate;
  }
  float LastSeconds = -1;

 private:
  double m_dRate;
};
}  // namespace

TEST(NamingTest, WorkedExampleOfLogger3) {
  CLog log;
  log.NumLogSegmentsPerHour(60);
  const int32_t day = 40251;  // 14 March 2010
  const LogInfo li(day, 13, 5);
  const SDTime sd{day, 13 * 3600 + 5 * 60 + 20};
  const std::vector<std::string> aNames = {
      log.GetDateFolder(day),      log.GetHourFolder(day, 13), log.GetHourFileName(13),   log.GetBaseFileName(13, 5),
      log.GetBaseFileName(13, 59), log.GetDateFolderLI(li),    log.GetHourFolderLI(li),   log.GetBaseFileNameLI(li),
      log.GetHourFileNameLI(li),   log.GetHourFolderSD(sd),    log.GetBaseFileNameSD(sd), log.GetHourFileNameSD(sd),
      log.GetHourFolder(day, 7),   log.GetBaseFileName(9, -1), log.GetBaseFileName(9, 0)};
  EXPECT_EQ(aNames, (std::vector<std::string>{"20100314", "20100314/1300", "130000", "130500", "135900", "20100314",
                                              "20100314/1300", "130500", "130000", "20100314/1300", "130500", "130000",
                                              "20100314/0700", "09????", "090000"}));
}

TEST(NamingTest, MinutesAreSegmentTimesWholeMinutes) {
  for (auto [iSegs, iSegment, sName] : {std::tuple{60, 5, "130500"},
                                        {30, 5, "131000"},
                                        {12, 5, "132500"},
                                        {40, 1, "130130"},
                                        {40, 2, "130200"},
                                        {40, 3, "130330"},
                                        {120, 2, "130000"},
                                        {120, 3, "130030"}}) {
    CLog log;
    log.NumLogSegmentsPerHour(iSegs);
    EXPECT_EQ(log.GetBaseFileName(13, iSegment), sName) << iSegs << " segments, segment " << iSegment;
  }
}

TEST(NamingTest, SegmentOfARecordUsesTheSegmentLength) {
  CLog log;
  log.NumLogSegmentsPerHour(40);  // 90 seconds
  SDTime sd{40251, 13 * 3600 + 3 * 90 + 10};
  EXPECT_EQ(log.GetBaseFileNameSD(sd), "130330");
  // Seconds rounded before the hour is taken.
  EXPECT_EQ(log.GetHourFolderSD({40251, 3599.6f}), "20100314/0100");
}

TEST(NamingTest, PositionFromAPath) {
  CLog log;
  auto li = log.GetLIFromFileName("D:\\L\\20100314\\1300\\130000.inf");
  ASSERT_TRUE(li);
  EXPECT_EQ(*li, LogInfo(40251, 13, 0));
  auto lj = log.GetLIFromFileName("/srv/L/20100314/2359/any.file");
  ASSERT_TRUE(lj);
  EXPECT_EQ(lj->Hour, 23);
  for (const char* bad :
       {"D:\\L\\20100314\\1300x\\130000.inf", "D:\\L\\20100314\\130\\130000.inf", "D:\\L\\20100314\\2400\\130000.inf",
        "D:\\L\\2010031\\1300\\a.inf", "1300\\a.inf", "", "D:\\L\\2010031a\\1300\\a.inf"}) {
    EXPECT_FALSE(log.GetLIFromFileName(bad)) << bad;
  }
}

TEST(NamingTest, OutputNumberFromTheFileLetter) {
  CLog log;
  EXPECT_EQ(log.GetAudioFileOutputNum("D:\\x\\130000b.wav"), 1);
  EXPECT_EQ(log.GetAudioFileOutputNum("/x/130000A.mp3"), 0);
  EXPECT_EQ(log.GetAudioFileOutputNum("130500C"), 2);
  try {
    log.GetAudioFileOutputNum("D:\\x\\130000.wav");
    FAIL() << "no error";
  } catch (const RaisedError& e) {
    EXPECT_EQ(std::tuple(e.Number, e.Source, e.Description),
              std::tuple(static_cast<int32_t>(0x80040002u), "CLog.GetFileOutputNum", "Not an audio file"));
  }
}

TEST(NamingTest, SegmentLengthRounding) {
  CLog log;
  EXPECT_EQ(log.NumLogSegmentsPerHour(), 0);
  EXPECT_EQ(log.LogSegmentLength(), 60);
  EXPECT_EQ(log.NumLogSegmentsPerHour(), 60);
  for (auto [n, iLen] : {std::pair{120, 30}, {1, 3600}, {7, 514}, {32, 112}, {96, 38}}) {
    log.NumLogSegmentsPerHour(n);
    EXPECT_EQ(log.LogSegmentLength(), iLen) << n;
  }
  log.NumLogSegmentsPerHour(121);
  EXPECT_EQ(log.NumLogSegmentsPerHour(), 120);
  log.NumLogSegmentsPerHour(0);
  EXPECT_EQ(log.NumLogSegmentsPerHour(), 1);
}

TEST(NamingTest, PeriodSizeAsksEachFormatForThePeriodLength) {
  CLog log;
  log.OutputFormatCount(2);
  log.StandardHours(48);
  log.ArchiveHours(336);
  log.DeleteHours(1008);
  auto f0 = std::make_shared<FakeFormat>(10.0);
  auto f1 = std::make_shared<FakeFormat>(1.0);
  log.AudioFormat(0)->Period(1, f0);
  log.AudioFormat(1)->Period(1, f1);
  EXPECT_DOUBLE_EQ(log.GetPeriodSize(1, 0), 1036800.0 * 11);
  EXPECT_FLOAT_EQ(f0->LastSeconds, 1036800.0f);
  EXPECT_FLOAT_EQ(f1->LastSeconds, 1036800.0f);
  EXPECT_DOUBLE_EQ(log.GetPeriodSize(1, 2), 7200.0 * 11);
  log.AudioFormat(0)->Period(2, f0);
  EXPECT_DOUBLE_EQ(log.GetPeriodSize(2, 0), 672.0 * 3600 * 10);  // the other format has no audio
  log.ArchiveHours(24);
  log.GetPeriodSize(1, 0);
  EXPECT_FLOAT_EQ(f0->LastSeconds, -24.0f * 3600);
  EXPECT_THROW(log.GetPeriodSize(3, 1), RaisedError);
}

class HourLogTest : public ConfigTest {
 protected:
  void TearDown() override {
    Clock::Reset();
    ConfigTest::TearDown();
  }
};

TEST_F(HourLogTest, LineGoesToTheHourOfTheClock) {
  Clock::SetFixed(VbDate::DateSerial(2010, 3, 14) + VbDate::TimeSerial(13, 7, 9));
  std::filesystem::create_directories(DriveD("Kestrane/Logger3/20100314/1300"));
  CLog log;
  log.AddToServerLog("D:\\Kestrane\\Logger3", "Converted 130000A.wav", "");
  log.AddToServerLog("D:\\Kestrane\\Logger3", "second", "");
  log.AddToServerLog("D:\\Kestrane\\Logger3", "archive line", "arc");
  EXPECT_EQ(ReadFile("drive_d/Kestrane/Logger3/20100314/1300/130000.LOG"),
            "13:07:09 Converted 130000A.wav\r\n13:07:09 second\r\n");
  EXPECT_EQ(ReadFile("drive_d/Kestrane/Logger3/20100314/1300/130000.arc.LOG"), "13:07:09 archive line\r\n");
  // Missing folders lose the line quietly.
  Clock::SetFixed(VbDate::DateSerial(2010, 3, 14) + VbDate::TimeSerial(14, 0, 0));
  log.AddToServerLog("D:\\Kestrane\\Gone", "x", "");
  EXPECT_FALSE(std::filesystem::exists(DriveD("Kestrane/Gone")));
  log.AddToServerLog("D:\\Kestrane\\Logger3", "x", "");
  EXPECT_FALSE(std::filesystem::exists(DriveD("Kestrane/Logger3/20100314/1400")));
}

class ActionPointTest : public ConfigTest {};

TEST_F(ActionPointTest, WritesOnlyAStoredPointThatIsStillDue) {
  WriteFile("h/130000.inf",
            "[General]\r\nVersion=4\r\n[ActionDates]\r\nStandardAudioAt=2010-03-16 13:00\r\n"
            "ArchiveAudioAt=20100328 1300\r\nDeleteAudioAt=-1\r\n");
  CLog log;
  log.NumLogSegmentsPerHour(60);
  LogInfo point(40253, 13, 0), later(40265, 9, 30);
  log.SetStandardPoint(PathIn("h/130000.inf"), nullptr, &point);
  log.SetArchivePoint(PathIn("h/130000.inf"), nullptr, &later);
  const std::string sBefore = ReadFile("h/130000.inf");
  log.SetDeletePoint(PathIn("h/130000.inf"), nullptr, &point);
  EXPECT_EQ(ReadFile("h/130000.inf"), sBefore);
  std::string sPoints;
  for (const char* k : {"StandardAudioAt", "ArchiveAudioAt", "DeleteAudioAt"})
    sPoints += ConfigAccess::GetProfileString("ActionDates", k, "", PathIn("h/130000.inf")) + "|";
  EXPECT_EQ(sPoints, "20100316 1300|20100328 0900|-1|");
  // A key the file doesn't hold is not added.
  WriteFile("h/130000.inf", "[ActionDates]\r\nStandardAudioAt=20100316 1300\r\n");
  log.SetDeletePoint(PathIn("h/130000.inf"), nullptr, &point);
  EXPECT_EQ(ReadFile("h/130000.inf"), "[ActionDates]\r\nStandardAudioAt=20100316 1300\r\n");
}
