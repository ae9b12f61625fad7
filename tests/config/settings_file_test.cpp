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
  // The file's name in another case is found.
  WriteFile("drive_d/Kestrane/Logger3/KESTRANE.INI", "[General]\r\nName=Upper\r\n");
  CLog d;
  EXPECT_TRUE(d.LoadLog(kPath, 2));
  EXPECT_EQ(d.Name(), "Upper");
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
  EXPECT_EQ(std::tuple(log.Name(), log.description, log.SchedulerLogFileName, log.GUID()),
            std::tuple("Studio 1", "Main output", "YYMMDD.TXT", "{ABC}"));
  EXPECT_EQ(std::tuple(log.OutputFormatCount(), log.OutputFormatName(1), log.OutputFormatName(2)),
            std::tuple(2, "Air", "Format B"));
  EXPECT_EQ(std::tuple(log.NumLogSegmentsPerHour(), log.StandardHours(), log.ArchiveHours(), log.DeleteHours()),
            std::tuple(30, 24, 200, 900));
  // Bits 32, 16, 256 and 512 are not among the 15 of a list load.
  EXPECT_EQ(std::tuple(log.SilenceDetect(), log.HWLinesChecked(), log.FirstLog->Date), std::tuple(false, 0, 0));

  CLog all;
  ASSERT_TRUE(all.LoadLog(kPath, 15 | 16 | 32 | 256 | 512));
  EXPECT_TRUE(all.SilenceDetect());
  EXPECT_FLOAT_EQ(all.SDPeriod(), 2);
  EXPECT_EQ(all.SDThreshold(), 7);
  EXPECT_EQ(std::tuple(all.HardwareLines(105)->LogPosition(), all.HardwareLines(2)->LogPosition(),
                       all.HardwareLines(105)->Description(), all.HardwareLines(2)->Colour(), all.HWLinesChecked()),
            std::tuple(1, 2, "Mic", 255, 2));
  EXPECT_EQ(*all.FirstLog, LogInfo(40238, 0, 0));
  EXPECT_EQ(*all.LastLog, LogInfo(40251, 13, 2));  // 5 minutes of 120-second segments
}

TEST_F(SettingsFileTest, BadOutputCountEndsTheGeneralSection) {
  Ini("[General]\r\nName=First\r\nOutputCount=0\r\nDescription=lost\r\n[LogSettings]\r\nSegmentsPerHour=0\r\n");
  CLog log;
  EXPECT_TRUE(log.LoadLog(kPath, 15));
  EXPECT_EQ(std::tuple(log.Name(), log.description, log.OutputFormatCount(), log.NumLogSegmentsPerHour()),
            std::tuple("First", "", 1, 1));
  std::string t = Trace();
  EXPECT_NE(t.find("LoadLog: Error -2147212504(Invalid OutputCount (0)) on line 2"), std::string::npos) << t;
  EXPECT_NE(t.find("ERROR: No AudioFormat object for Format 0"), std::string::npos);
}

TEST_F(SettingsFileTest, StrictDeleteHoursEndsTheLogSettings) {
  Ini("[LogSettings]\r\nStandardAudioAfterHours=12.5\r\nDeleteAudioAfterHours=1008h\r\n"
      "ArchiveAudioAfterHours=99\r\n");
  CLog log;
  EXPECT_TRUE(log.LoadLog(kPath, 4));
  // A half goes to the even neighbour; the entries after the failing one are not read.
  EXPECT_EQ(std::tuple(log.StandardHours(), log.DeleteHours(), log.ArchiveHours(), log.NumLogSegmentsPerHour()),
            std::tuple(12, 0, 0, 0));
  Ini("[LogSettings]\r\nDeleteAudioAfterHours= 1008 \r\nSegmentsPerHour=99999\r\nArchiveAudioAfterHours=5\r\n");
  CLog b;
  b.LoadLog(kPath, 4);
  EXPECT_EQ(std::tuple(b.DeleteHours(), b.ArchiveHours()), std::tuple(1008, 0));  // the 16-bit overflow ended it
}

TEST_F(SettingsFileTest, SilenceSectionSurvivesABadEntry) {
  Ini("[SilenceDetection]\r\nSilenceDetect=-1\r\nSDThreshold=40000\r\nSDPeriod=500\r\nInverted=1\r\n"
      "SilenceAlarm=yes\r\nSAEmailAddress=  ops@example.org \r\nSAEmailType=-4\r\nSAHWLinePeriod=0\r\n");
  CLog log;
  log.SDThreshold(9);
  log.LoadLog(kPath, 32);
  EXPECT_EQ(std::tuple(log.SilenceDetect(), log.SDThreshold(), log.InvertSilences(), log.SilenceAlarm()),
            std::tuple(false, 9, true, false));
  EXPECT_FLOAT_EQ(log.SDPeriod(), 60);
  EXPECT_EQ(std::tuple(log.SAEmailAddress, log.SAEmailType(), log.SAHWLinePeriod()),
            std::tuple("ops@example.org", 0, 1));
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
  // The profile read trims round "=".
  EXPECT_EQ(std::tuple(log.HardwareLines(299)->IsLogged(), log.HardwareLines(299)->Description()),
            std::tuple(true, "far"));
  ASSERT_EQ(log.SerialCount(), 2);
  EXPECT_EQ(std::tuple(log.Serial(1)->Logging, log.Serial(1)->ServiceTags, log.Serial(2)->Logging,
                       log.Serial(2)->Description),
            std::tuple(false, "t", true, "Playout"));
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
  EXPECT_EQ(std::tuple(dst.Name(), dst.GUID(), dst.description, dst.OutputFormatCount(), dst.OutputFormatName(2)),
            std::tuple("Logger Number 3", src.GUID(), "Main", 2, "Web"));
  // Written as "SchedulerLog", read as another key.
  EXPECT_EQ(std::tuple(dst.SchedulerLogFileName, Get("General", "SchedulerLog"), Get("General", "Version")),
            std::tuple("", "YYMMDD.LOG", "4.0"));
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
  EXPECT_EQ(std::tuple(dst.StandardHours(), dst.ArchiveHours(), dst.DeleteHours(), dst.NumLogSegmentsPerHour()),
            std::tuple(12, 336, 1008, 30));
  EXPECT_FLOAT_EQ(dst.SDPeriod(), 2.5f);
  EXPECT_EQ(std::tuple(dst.SilenceDetect(), dst.SDMode(), dst.SAEmailAddress, dst.SAHWLinePeriod()),
            std::tuple(true, 4, "a@b", 120));
  EXPECT_EQ(std::tuple(dst.DABEnabled(), dst.DABServiceName, dst.DABServicePassword(), dst.DABPassServicePassword,
                       dst.DABPassIPAddr()),
            std::tuple(true, "Svc", "p=ss word", "x", "10.0.0.1"));
  EXPECT_EQ(Get("DAB", "LogServicePassword").find("p=ss word"), std::string::npos);  // not stored readable
  EXPECT_EQ(std::tuple(dst.HardwareLines(3)->IsLogged(), dst.HardwareLines(3)->Description(),
                       dst.HardwareLines(115)->Colour(), dst.HardwareLines(20)->IsLogged()),
            std::tuple(true, "Fader start", 1234, false));  // line 20 is outside the three banks
  ASSERT_EQ(dst.SerialCount(), 2);
  EXPECT_EQ(std::tuple(dst.Serial(1)->Logging, dst.Serial(1)->Description, dst.Serial(2)->ServiceTags),
            std::tuple(true, "Playout", "tags"));
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
  for (auto [sSec, sKey, sWant] : {std::tuple{"General", "Name", "New"},
                                   {"General", "Custom", "keep"},
                                   {"LogSettings", "AllowRemote", "<absent>"},
                                   {"LogSettings", "MinLegalLog", "<absent>"},
                                   {"LogSettings", "SegmentsPerHour", "60"},
                                   {"Comments", "Description0", "c"},
                                   {"Other", "x", "1"},
                                   {"LogicLines", "Description004", "<absent>"}})
    EXPECT_EQ(Get(sSec, sKey), sWant) << sSec << "/" << sKey;
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
  EXPECT_EQ(*log.LastLog, LogInfo(40255, 3, 0));  // hour 99 carried into the days
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
      std::string("[General]\r\nOutputCount=1e300\r\n[LogSettings]\r\nStandardAudioAfterHours=99999999999999\r\n") +
          "[Serial]\r\nCount=2147483647\r\n[SilenceDetection]\r\nSDPeriod=1e999\r\nSDMode=-1e20\r\n" +
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

// A file torn after its first format line: the outputs it announces aren't all described,
// and the load says which keys are missing, in the trace and on standard error.
TEST_F(SettingsFileTest, UndescribedOutputsAreReportedAtLoad) {
  Ini("[General]\r\nOutputCount=2\r\n[LogSettings]\r\nSegmentsPerHour=60\r\n[Logtypes]\r\nFormatType0a=2\r\n");
  CLog log;
  testing::internal::CaptureStderr();
  ASSERT_TRUE(log.LoadLog(kPath, 15));
  const std::string sErr = testing::internal::GetCapturedStderr();
  const std::string sKeys = "FormatType1a, FormatType2a, FormatType0b, FormatType1b, FormatType2b missing";
  EXPECT_NE(sErr.find("<4>knlogproc: " + IniFile() + ": OutputCount is 2 but " + sKeys), std::string::npos) << sErr;
  EXPECT_NE(Trace().find(sKeys), std::string::npos);
  EXPECT_FALSE(log.AudioFormat(0)->Period(1));
  EXPECT_TRUE(log.AudioFormat(0)->Period(0));

  // A whole file says nothing.
  Ini("[General]\r\nOutputCount=1\r\n[Logtypes]\r\nFormatType0a=2\r\nFormatType1a=-1\r\nFormatType2a=-1\r\n");
  CLog whole;
  testing::internal::CaptureStderr();
  ASSERT_TRUE(whole.LoadLog(kPath, 15));
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}
