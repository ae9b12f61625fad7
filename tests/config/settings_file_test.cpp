#include <gtest/gtest.h>

#include <filesystem>

#include "config/CLog.h"
#include "config/ConfigTestUtil.h"

namespace {
const std::string kPath = "D:\\Kestrane\\Logger3";
const std::string kFileRel = "drive_d/Kestrane/Logger3/Kestrane.ini";
}  // namespace

class SettingsFileTest : public ConfigTest {
 protected:
  void Ini(const std::string& s) const {
    WriteFile(kFileRel, s);
    ConfigAccess::ClearCache();
  }
  std::string IniFile() const { return PathIn(kFileRel); }
  std::string Get(const std::string& sec, const std::string& key) const {
    return ConfigAccess::GetProfileString(sec, key, "<absent>", IniFile());
  }
};

TEST_F(SettingsFileTest, MissingFileLeavesDefaultsOnlyWithTheDefaultsBit) {
  CLog a;
  EXPECT_FALSE(a.LoadLog(kPath, 15));
  EXPECT_EQ(a.StandardHours(), 0);
  CLog b;
  EXPECT_FALSE(b.LoadLog(kPath, 15 | CLog::lfDefaults));
  EXPECT_EQ(b.StandardHours(), 48);
  EXPECT_NE(Trace().find("Exit CLog::LoadLog (kestrane.ini does not exist)"), std::string::npos);
  CLog c;
  EXPECT_FALSE(c.LoadLog("", 15));
}

TEST_F(SettingsFileTest, TypicalFile) {
  Ini("[General]\r\nName= Studio 1 \r\nVersion=4.0\r\nDescription=Main output\r\nAltCommentLoc=\r\n"
      "SchedulerLogFileName=YYMMDD.TXT\r\nGUID={ABC}\r\nOutputCount=2\r\n"
      "[LogSettings]\r\nSegmentsPerHour=30\r\nStandardAudioAfterHours=24\r\nArchiveAudioAfterHours=200\r\n"
      "DeleteAudioAfterHours=900\r\nAllowRemote=1\r\n"
      "[Logtypes]\r\nFormatNameA=Air\r\nFormatType0a=-1\r\n"
      "[SilenceDetection]\r\nSilenceDetect=1\r\nSDPeriod=2,5\r\nSDThreshold=7\r\n"
      "[LogicLines]\r\nLogging105=1\r\nDescription105=Mic\r\nLogging002=1\r\nColour002=255\r\n"
      "[AvailableLogs]\r\nFirstLog=20100301 000000\r\nLastLog=20100314 130500\r\n");
  CLog log;
  ASSERT_TRUE(log.LoadLog(kPath, 15));
  EXPECT_EQ(log.Name(), "Studio 1");
  EXPECT_EQ(log.description, "Main output");
  EXPECT_EQ(log.SchedulerLogFileName, "YYMMDD.TXT");
  EXPECT_EQ(log.GUID(), "{ABC}");
  EXPECT_EQ(log.OutputFormatCount(), 2);
  EXPECT_EQ(log.OutputFormatName(1), "Air");
  EXPECT_EQ(log.OutputFormatName(2), "Format B");
  EXPECT_EQ(log.NumLogSegmentsPerHour(), 30);
  EXPECT_EQ(log.StandardHours(), 24);
  EXPECT_EQ(log.ArchiveHours(), 200);
  EXPECT_EQ(log.DeleteHours(), 900);
  // Bits 32, 16, 256 and 512 are not among the 15 of a list load.
  EXPECT_FALSE(log.SilenceDetect());
  EXPECT_EQ(log.HWLinesChecked(), 0);
  EXPECT_EQ(log.FirstLog->Date, 0);

  CLog all;
  ASSERT_TRUE(all.LoadLog(kPath, 15 | 16 | 32 | 256 | 512));
  EXPECT_TRUE(all.SilenceDetect());
  EXPECT_FLOAT_EQ(all.SDPeriod(), 2);
  EXPECT_EQ(all.SDThreshold(), 7);
  EXPECT_EQ(all.HardwareLines(105)->LogPosition(), 1);
  EXPECT_EQ(all.HardwareLines(2)->LogPosition(), 2);
  EXPECT_EQ(all.HardwareLines(105)->Description(), "Mic");
  EXPECT_EQ(all.HardwareLines(2)->Colour(), 255);
  EXPECT_EQ(all.HWLinesChecked(), 2);
  EXPECT_EQ(all.FirstLog->Date, 40238);
  EXPECT_EQ(all.FirstLog->Hour, 0);
  EXPECT_EQ(all.LastLog->Date, 40251);
  EXPECT_EQ(all.LastLog->Hour, 13);
  EXPECT_EQ(all.LastLog->Segment, 2);  // 5 minutes of 120-second segments
}

TEST_F(SettingsFileTest, BadOutputCountEndsTheGeneralSection) {
  Ini("[General]\r\nName=First\r\nOutputCount=0\r\nDescription=lost\r\n[LogSettings]\r\nSegmentsPerHour=0\r\n");
  CLog log;
  EXPECT_TRUE(log.LoadLog(kPath, 15));
  EXPECT_EQ(log.Name(), "First");
  EXPECT_EQ(log.description, "");
  EXPECT_EQ(log.OutputFormatCount(), 1);
  EXPECT_EQ(log.NumLogSegmentsPerHour(), 1);
  std::string t = Trace();
  EXPECT_NE(t.find("LoadLog: Error -2147212504(Invalid OutputCount (0)) on line 2"), std::string::npos) << t;
  EXPECT_NE(t.find("ERROR: No AudioFormat object for Format 0"), std::string::npos);
}

TEST_F(SettingsFileTest, StrictDeleteHoursEndsTheLogSettings) {
  Ini("[LogSettings]\r\nStandardAudioAfterHours=12.5\r\nDeleteAudioAfterHours=1008h\r\n"
      "ArchiveAudioAfterHours=99\r\n");
  CLog log;
  EXPECT_TRUE(log.LoadLog(kPath, 4));
  EXPECT_EQ(log.StandardHours(), 12);  // a half goes to the even neighbour
  EXPECT_EQ(log.DeleteHours(), 0);
  EXPECT_EQ(log.ArchiveHours(), 0);  // after the failing entry
  EXPECT_EQ(log.NumLogSegmentsPerHour(), 0);
  Ini("[LogSettings]\r\nDeleteAudioAfterHours= 1008 \r\nSegmentsPerHour=99999\r\nArchiveAudioAfterHours=5\r\n");
  CLog b;
  b.LoadLog(kPath, 4);
  EXPECT_EQ(b.DeleteHours(), 1008);
  EXPECT_EQ(b.ArchiveHours(), 0);  // overflow of the 16-bit segment count ended it
}

TEST_F(SettingsFileTest, SilenceSectionSurvivesABadEntry) {
  Ini("[SilenceDetection]\r\nSilenceDetect=-1\r\nSDThreshold=40000\r\nSDPeriod=500\r\nInverted=1\r\n"
      "SilenceAlarm=yes\r\nSAEmailAddress=  ops@example.org \r\nSAEmailType=-4\r\nSAHWLinePeriod=0\r\n");
  CLog log;
  log.SDThreshold(9);
  log.LoadLog(kPath, 32);
  EXPECT_FALSE(log.SilenceDetect());
  EXPECT_EQ(log.SDThreshold(), 9);
  EXPECT_FLOAT_EQ(log.SDPeriod(), 60);
  EXPECT_TRUE(log.InvertSilences());
  EXPECT_FALSE(log.SilenceAlarm());
  EXPECT_EQ(log.SAEmailAddress, "ops@example.org");
  EXPECT_EQ(log.SAEmailType(), 0);
  EXPECT_EQ(log.SAHWLinePeriod(), 1);
  Ini("[General]\r\nName=x\r\n");
  log.SilenceDetect(true);
  log.LoadLog(kPath, 32);
  EXPECT_FALSE(log.SilenceDetect());
  EXPECT_FLOAT_EQ(log.SDPeriod(), 60);
}

TEST_F(SettingsFileTest, LogicAndSerialEdgeEntries) {
  Ini("[LogicLines]\r\nLogging300=1\r\nLogging0x=1\r\nab=1\r\nLogging299=1\r\nDescription299=  far  \r\n"
      "[Serial]\r\nCount=2\r\nLogging005=1\r\nLogging002=1\r\nDescription002= Playout \r\nServiceTags001=t\r\n");
  CLog log;
  int hwEvents = 0;
  log.HardwareLoggingChange = [&] { ++hwEvents; };
  log.LoadLog(kPath, 16 | 1024);
  EXPECT_EQ(hwEvents, 1);
  EXPECT_TRUE(log.HardwareLines(299)->IsLogged());
  EXPECT_EQ(log.HardwareLines(299)->Description(), "far");  // the profile read trims round "="
  EXPECT_EQ(log.SerialCount(), 2);
  EXPECT_TRUE(log.Serial(2)->Logging);
  EXPECT_EQ(log.Serial(2)->Description, "Playout");
  EXPECT_EQ(log.Serial(1)->ServiceTags, "t");
  EXPECT_FALSE(log.Serial(1)->Logging);
}

TEST_F(SettingsFileTest, SaveThenLoadGivesBackTheSettings) {
  std::filesystem::create_directories(DriveD("Kestrane/Logger3"));
  CLog src;
  src.LoadDefaults(-1);
  src.logNum(3);
  src.description = "Main";
  src.OutputFormatCount(2);
  src.AudioFormat(1)->FormatName("Web");
  src.StandardHours(12);
  src.NumLogSegmentsPerHour(30);
  src.SDPeriod(2.5f);
  src.SDMode(4);
  src.SAEmailAddress = "a@b";
  src.DABEnabled(true);
  src.DABServiceName = "Svc";
  src.DABServicePassword("p=ss word");
  src.DABPassServicePassword = "x";
  src.DABPassIPAddr("10.0.0.1");
  src.HardwareLines(3)->IsLogged(true);
  src.HardwareLines(3)->Description("Fader start ");
  src.HardwareLines(115)->IsLogged(true);
  src.HardwareLines(115)->Colour(1234);
  src.HardwareLines(20)->IsLogged(true);  // outside the three banks
  src.SerialCount(2);
  src.Serial(1)->Logging = true;
  src.Serial(1)->Description = "Playout";
  src.Serial(2)->ServiceTags = "tags";
  src.FirstLog = std::make_shared<LogInfo>(40238, 0, 0);
  src.LastLog = std::make_shared<LogInfo>(40251, 13, 5);
  src.SaveLog(kPath, -1);

  CLog dst;
  ASSERT_TRUE(dst.LoadLog(kPath, -1 & ~CLog::lfDefaults));
  EXPECT_EQ(dst.Name(), "Logger Number 3");
  EXPECT_EQ(dst.GUID(), src.GUID());
  EXPECT_EQ(dst.description, "Main");
  EXPECT_EQ(dst.SchedulerLogFileName, "");  // written as "SchedulerLog", read as another key
  EXPECT_EQ(Get("General", "SchedulerLog"), "YYMMDD.LOG");
  EXPECT_EQ(Get("General", "Version"), "4.0");
  EXPECT_EQ(dst.OutputFormatCount(), 2);
  EXPECT_EQ(dst.OutputFormatName(2), "Web");
  // The factory formats of output 0 come back through their format sections.
  for (int p = 0; p < 3; ++p) {
    auto a = src.AudioFormat(0)->Period(p), b = dst.AudioFormat(0)->Period(p);
    ASSERT_TRUE(b) << p;
    EXPECT_EQ(b->FormatType(), 2) << p;
    EXPECT_TRUE(b->IsSameFormat(a.get())) << p;
    EXPECT_EQ(b->SampleRate(), a->SampleRate()) << p;
    EXPECT_EQ(dst.AudioFormat(1)->Period(p)->FormatType(), -1) << p;
  }
  EXPECT_EQ(Get("Logtypes", "FormatType2a"), "2");
  EXPECT_EQ(dst.StandardHours(), 12);
  EXPECT_EQ(dst.ArchiveHours(), 336);
  EXPECT_EQ(dst.DeleteHours(), 1008);
  EXPECT_EQ(dst.NumLogSegmentsPerHour(), 30);
  EXPECT_TRUE(dst.SilenceDetect());
  EXPECT_FLOAT_EQ(dst.SDPeriod(), 2.5f);
  EXPECT_EQ(dst.SDMode(), 4);
  EXPECT_EQ(dst.SAEmailAddress, "a@b");
  EXPECT_EQ(dst.SAHWLinePeriod(), 120);
  EXPECT_TRUE(dst.DABEnabled());
  EXPECT_EQ(dst.DABServiceName, "Svc");
  EXPECT_EQ(dst.DABServicePassword(), "p=ss word");
  EXPECT_EQ(dst.DABPassServicePassword, "x");
  EXPECT_EQ(dst.DABPassIPAddr(), "10.0.0.1");
  EXPECT_EQ(Get("DAB", "LogServicePassword").find("p=ss word"), std::string::npos);
  EXPECT_TRUE(dst.HardwareLines(3)->IsLogged());
  EXPECT_EQ(dst.HardwareLines(3)->Description(), "Fader start");
  EXPECT_EQ(dst.HardwareLines(115)->Colour(), 1234);
  EXPECT_FALSE(dst.HardwareLines(20)->IsLogged());
  EXPECT_EQ(dst.SerialCount(), 2);
  EXPECT_TRUE(dst.Serial(1)->Logging);
  EXPECT_EQ(dst.Serial(1)->Description, "Playout");
  EXPECT_EQ(dst.Serial(2)->ServiceTags, "tags");
  EXPECT_EQ(Get("AvailableLogs", "LastLog"), "20100314 131000");
  EXPECT_EQ(*dst.FirstLog, LogInfo(40238, 0, 0));
  EXPECT_EQ(*dst.LastLog, LogInfo(40251, 13, 5));
  src.Terminate();
  dst.Terminate();
}

TEST_F(SettingsFileTest, RewritesKeepWhatTheWriterDoesNotOwn) {
  Ini("[General]\r\nName=Old\r\nCustom=keep\r\n[LogSettings]\r\nAllowRemote=1\r\nMinLegalLog=2\r\n"
      "SegmentsPerHour=60\r\n[Comments]\r\nDescription0=c\r\n[Other]\r\nx=1\r\n"
      "[LogicLines]\r\nDescription004=off line\r\nLogging004=0\r\n");
  CLog log;
  log.LoadLog(kPath, 15 | 16);
  log.Name("New");
  log.SaveLog(kPath, CLog::svName | CLog::svLogSettings | CLog::svLogicLines);
  EXPECT_EQ(Get("General", "Name"), "New");
  EXPECT_EQ(Get("General", "Custom"), "keep");
  EXPECT_EQ(Get("LogSettings", "AllowRemote"), "<absent>");
  EXPECT_EQ(Get("LogSettings", "MinLegalLog"), "<absent>");
  EXPECT_EQ(Get("LogSettings", "SegmentsPerHour"), "60");
  EXPECT_EQ(Get("Comments", "Description0"), "c");
  EXPECT_EQ(Get("Other", "x"), "1");
  EXPECT_EQ(Get("LogicLines", "Description004"), "<absent>");
}

TEST_F(SettingsFileTest, EmptyPathSavesNothingAndDefaultsFile) {
  CLog log;
  log.SaveLog("", -1);
  EXPECT_FALSE(std::filesystem::exists(IniFile()));
  std::filesystem::create_directories(DriveD("Kestrane/Logger3"));
  CLog seven;
  seven.logNum(7);
  seven.Name("mine");
  log.SaveLogDefaults(kPath, seven, CLog::svName | CLog::svLogSettings);
  EXPECT_EQ(Get("General", "Name"), "Logger Number 7");
  EXPECT_EQ(Get("LogSettings", "DeleteAudioAfterHours"), "1008");
  EXPECT_EQ(seven.Name(), "mine");
}

TEST_F(SettingsFileTest, AvailableLogsAbsentOrOddlyFormed) {
  Ini("[AvailableLogs]\r\nLastLog=20100314 990000\r\n");
  CLog log;
  log.NumLogSegmentsPerHour(60);
  log.LoadFirstLastLog(kPath);
  EXPECT_EQ(*log.FirstLog, LogInfo(-1, -1, -1));
  EXPECT_EQ(log.LastLog->Date, 40255);  // hour 99 carried into the days
  EXPECT_EQ(log.LastLog->Hour, 3);
}

TEST_F(SettingsFileTest, NameInAnotherCaseIsFound) {
  WriteFile("drive_d/Kestrane/Logger3/KESTRANE.INI", "[General]\r\nName=Upper\r\n");
  CLog log;
  EXPECT_TRUE(log.LoadLog(kPath, 2));
  EXPECT_EQ(log.Name(), "Upper");
}

TEST_F(SettingsFileTest, HostileFilesNeverStopTheLoad) {
  std::string big(100000, 'x');
  std::string sections;
  for (int i = 0; i < 1000; ++i) sections += "[S" + std::to_string(i) + "]\r\nk=v\r\n";
  std::string random;
  uint32_t r = 12345;
  for (int i = 0; i < 20000; ++i) {
    r = r * 1103515245u + 12345u;
    random += static_cast<char>(r >> 24);
  }
  const std::string files[] = {
      random,
      "[General]\r\nName=" + big + "\r\nOutputCount=3\r\n[LogicLines]\r\nLogging001=" + big + "\r\n",
      "[General]\r\nOutputCount=1e300\r\n[LogSettings]\r\nStandardAudioAfterHours=99999999999999\r\n"
      "[Serial]\r\nCount=2147483647\r\n[SilenceDetection]\r\nSDPeriod=1e999\r\nSDMode=-1e20\r\n"
      "[LogicLines]\r\nColour001=1e10\r\n[AvailableLogs]\r\nFirstLog=99999999 999999\r\n",
      sections + "[General]\r\nName=after\r\n",
      "[General]\r\n" + big + "\r\n" + big + "=\r\n=" + big + "\r\n",
  };
  for (const auto& f : files) {
    Ini(f);
    CLog log;
    EXPECT_TRUE(log.LoadLog(kPath, -1));
    log.Terminate();
  }
  CLog last;
  Ini(files[3]);
  last.LoadLog(kPath, 2);
  EXPECT_EQ(last.Name(), "after");
}
