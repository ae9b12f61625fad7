// The hour processing driven tick by tick: groups of files converted and replaced, the
// action point marked, deletes, the failure paths, and the end of the run.
#include <gtest/gtest.h>

#include <QCoreApplication>

#include <cerrno>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "audio/CAudioACM.h"
#include "audio/ChooseAudioClass.h"
#include "common/TempRoot.h"
#include "config/CLog.h"
#include "config/CLogList.h"
#include "config/CStream.h"
#include "config/ClogPeriods.h"
#include "engine/Globals.h"
#include "engine/IProcessorView.h"
#include "engine/ProcessTestUtil.h"
#include "engine/frmProcessLogs.h"
#include "hours/CLogProcessEntry.h"
#include "support/AppGlobal.h"
#include "support/Clock.h"
#include "support/ConfigAccess.h"
#include "support/DebugMsg.h"
#include "support/Faults.h"
#include "support/MessageTransport.h"
#include "support/VbDate.h"

namespace fs = std::filesystem;
using namespace proctest;

namespace {

QCoreApplication& App() {
  static int s_iArgc = 1;
  static char s_szName[] = "process_test";
  static char* s_apArgv[] = {s_szName, nullptr};
  static QCoreApplication* s_pApp = new QCoreApplication(s_iArgc, s_apArgv);
  return *s_pApp;
}

class CountingView : public IProcessorView {
 public:
  std::vector<int> aLogProgress;
  int iRowsChanged = 0;
  bool bMinimised = false;
  void ShowForm() override {}
  void SetBusyPointer(bool) override {}
  void SetProcessorActive(bool) override {}
  void SetAllDoneCaption(const std::string&) override {}
  void SetCurrentFileCaption(const std::string&) override {}
  void SetRestartEnabled(bool) override {}
  void SetFileProgress(int) override {}
  void SetLogProgress(int i) override { aLogProgress.push_back(i); }
  void RowsChanged() override { ++iRowsChanged; }
  void Minimise() override { bMinimised = true; }
  void SaveWindowPosition() override {}
  void CloseForm() override {}
};

std::shared_ptr<IAudioFormat> Wav(int iRate, int iChannels, int iTag) {
  auto o = std::make_shared<CAudioACM>();
  o->SetFileFormat(iRate, iChannels, iTag);
  return o;
}

}  // namespace

class ProcessTest : public TempRootTest {
 protected:
  void SetUp() override {
    TempRootTest::SetUp();
    App();
    AppGlobal::SetDebugPath(Root() + "/dbg/");
    AppGlobal::SetDebugMode(5);
    DebugLog::ResetForTesting();
    // Monday 23 November 2026, 10:05: the hour log of the present hour is
    // <logger>/20261123/1000/100000.LOG.
    Clock::SetFixed(VbDate::Make({2026, 11, 23, 10, 5, 0}));
    LogList().Clear();
    ASSERT_TRUE(m_oCapture.Bind(kCaptureHandler));
    m_pForm = std::make_unique<frmProcessLogs>();
    m_pForm->SetView(&m_oView);
  }
  void TearDown() override {
    m_pForm.reset();
    m_oCapture.Close();
    LogList().Clear();
    Faults::DisarmAll();
    Clock::Reset();
    AppGlobal::SetDebugMode(0);
    AppGlobal::SetDebugPath("");
    TempRootTest::TearDown();
  }

  // Logger iNum in <root>/drive_d/L<iNum>: output A recorded as 44.1 kHz stereo PCM,
  // standardised to 22.05 kHz stereo IMA ADPCM, archived to 22.05 kHz mono IMA ADPCM.
  std::shared_ptr<CLog> AddLogger(int16_t iNum) {
    auto oLog = std::make_shared<CLog>();
    oLog->logNum(iNum);
    oLog->Name("Logger" + std::to_string(iNum));
    oLog->DeleteHours(24 * 30);
    auto oPeriods = std::make_shared<ClogPeriods>();
    oPeriods->Period(0, Wav(44100, 2, 1));
    oPeriods->Period(1, Wav(22050, 2, 17));
    oPeriods->Period(2, Wav(22050, 1, 17));
    oLog->AudioFormat(0, oPeriods);
    auto oStream = std::make_shared<CStream>();
    oStream->logNum(iNum);
    oStream->LogPath("D:\\L" + std::to_string(iNum));
    LogList().Add(oLog, oStream);
    fs::create_directories(Dir(iNum, "20261123/1000"));
    return oLog;
  }
  std::string Dir(int iLog, const std::string& sRel) const {
    return PathIn("drive_d/L" + std::to_string(iLog) + "/" + sRel);
  }
  // An hour of logger iLog on 22 November with its info file, as a row of the work list.
  void AddRow(const std::shared_ptr<CLog>& oLog, const std::string& sHour, eAction eAct) {
    const std::string sInf = Dir(oLog->logNum(), "20261122/" + sHour + "00/" + sHour + "0000.inf");
    if (!fs::exists(sInf)) WriteInf(sInf, "2026-11-22 14:00", "2026-11-23 00:00", "2026-12-22 00:00");
    auto oEntry = std::make_shared<CLogProcessEntry>();
    oEntry->OpenInf(oLog, sInf);
    oEntry->Action(eAct);
    WorkListRow oRow;
    oRow.sKey = oEntry->Reference();
    oRow.sText = oLog->Name();
    oRow.pTag = oEntry;
    m_pForm->lvwItems.Add(std::move(oRow));
  }
  // Ticks until the run has ended; the number of ticks, or -1 when it didn't end.
  int RunToEnd(int iMaxTicks = 200) {
    const size_t lEnds = Count(Trace(), "No More Files");
    for (int i = 1; i <= iMaxTicks; ++i) {
      m_pForm->tmrProcess_Timer();
      if (Count(Trace(), "No More Files") > lEnds) return i;
    }
    return -1;
  }
  static size_t Count(const std::string& s, const std::string& sPart) {
    size_t n = 0;
    for (size_t i = s.find(sPart); i != std::string::npos; i = s.find(sPart, i + 1)) ++n;
    return n;
  }
  std::string Trace() const { return ReadBytes(DebugLog::CurrentFile()); }
  std::string HourLog(int iLog) const { return ReadBytes(Dir(iLog, "20261123/1000/100000.LOG")); }
  std::vector<std::string> Messages() {
    std::vector<std::string> a;
    while (auto m = m_oCapture.Receive()) a.push_back(m->Text);
    return a;
  }
  static bool Has(const std::vector<std::string>& a, const std::string& s) {
    return std::find(a.begin(), a.end(), s) != a.end();
  }

  MessageEndpoint m_oCapture;
  CountingView m_oView;
  std::unique_ptr<frmProcessLogs> m_pForm;
};

TEST_F(ProcessTest, StandardiseConvertsTheGroupMarksThePointAndEndsTheRun) {
  auto oLog = AddLogger(1);
  const std::string sHour = Dir(1, "20261122/1300/");
  WriteToneWav(sHour + "130000A.wav", 3.0);
  WriteToneWav(sHour + "130100A.wav", 10.0);
  AddRow(oLog, "13", actStandardise);

  // 3 s in one tick; 10 s in two (7 passes a tick); the group's end and the run's end
  // come in the tick after the last file.
  EXPECT_EQ(RunToEnd(), 4);

  for (const char* sName : {"130000A.wav", "130100A.wav"}) {
    const Probe p = ProbeAudio(sHour + sName);
    EXPECT_EQ(p.sCodec, "adpcm_ima_wav") << sName;
    EXPECT_EQ(p.iRate, 22050) << sName;
    EXPECT_EQ(p.iChannels, 2) << sName;
  }
  EXPECT_NEAR(DecodedSeconds(sHour + "130000A.wav"), 3.0, 0.05);
  EXPECT_NEAR(DecodedSeconds(sHour + "130100A.wav"), 10.0, 0.05);
  EXPECT_FALSE(fs::exists(sHour + "std130000A.wav"));
  EXPECT_FALSE(fs::exists(sHour + "std130100A.wav"));
  EXPECT_EQ(IniValue(sHour + "130000.inf", "StandardAudioAt"), "-1");
  EXPECT_EQ(IniValue(sHour + "130000.inf", "ArchiveAudioAt"), "2026-11-23 00:00");
  EXPECT_EQ(m_pForm->lvwItems.Count(), 0);

  const std::string sLog = HourLog(1);
  EXPECT_NE(sLog.find("10:05:00 Start Processing Hour 2026-11-22 13:00\r\n"), std::string::npos) << sLog;
  EXPECT_NE(sLog.find("10:05:00 Archived audio file 130000A.wav\r\n"), std::string::npos) << sLog;
  EXPECT_NE(sLog.find("10:05:00 Archived audio file 130100A.wav\r\n"), std::string::npos) << sLog;
  EXPECT_NE(sLog.find("10:05:00 Finished Archiving Audio\r\n"), std::string::npos) << sLog;
  const auto aMessages = Messages();
  EXPECT_TRUE(Has(aMessages, "ACTIVE1"));
  EXPECT_TRUE(Has(aMessages, "IDLE"));
  // Two of 60 segments: 2% and 3%, then full at the end of the run.
  ASSERT_GE(m_oView.aLogProgress.size(), 3u);
  EXPECT_EQ(m_oView.aLogProgress[m_oView.aLogProgress.size() - 3], 2);
  EXPECT_EQ(m_oView.aLogProgress[m_oView.aLogProgress.size() - 2], 3);
  EXPECT_EQ(m_oView.aLogProgress.back(), 100);
  EXPECT_TRUE(m_oView.bMinimised);

  // A second run over the same hour finds the files in the target format already.
  AddRow(oLog, "13", actStandardise);
  const std::string sBefore = ReadBytes(sHour + "130000A.wav");
  EXPECT_GT(RunToEnd(), 0);
  EXPECT_EQ(ReadBytes(sHour + "130000A.wav"), sBefore);
  EXPECT_NE(HourLog(1).find("Audio already in Standard Format 130000A.wav"), std::string::npos);
}

TEST_F(ProcessTest, ArchiveGoesToMonoAndTheLoggerIsFoundByItsNumber) {
  // Logger 2 is disabled: loggers 1 and 3 stand at list positions 1 and 2.
  AddLogger(1);
  auto oLog3 = AddLogger(3);
  WriteToneWav(Dir(3, "20261122/0700/070000A.wav"), 2.0);
  WriteToneWav(Dir(1, "20261122/0700/070000A.wav"), 2.0);
  AddRow(oLog3, "07", actArchive);
  EXPECT_GT(RunToEnd(), 0);

  const Probe p = ProbeAudio(Dir(3, "20261122/0700/070000A.wav"));
  EXPECT_EQ(p.sCodec, "adpcm_ima_wav");
  EXPECT_EQ(p.iChannels, 1);
  EXPECT_EQ(IniValue(Dir(3, "20261122/0700/070000.inf"), "ArchiveAudioAt"), "-1");
  // Logger 1's hour of the same time is not touched.
  EXPECT_EQ(ProbeAudio(Dir(1, "20261122/0700/070000A.wav")).sCodec, "pcm_s16le");
  EXPECT_NE(HourLog(3).find("Archived audio file 070000A.wav"), std::string::npos);
  EXPECT_EQ(HourLog(1).find("Archived audio file"), std::string::npos);
  EXPECT_TRUE(Has(Messages(), "ACTIVE3"));
}

TEST_F(ProcessTest, FilesThatAreNotSegmentsArePassedOverAndTheHourStillCounts) {
  auto oLog = AddLogger(1);
  const std::string sHour = Dir(1, "20261122/1300/");
  WriteToneWav(sHour + "130000A.wav", 1.0);
  WriteBytes(sHour + "1300ZZ.wav", "six characters: no output letter");
  WriteBytes(sHour + "130100A.txt", "unknown extension");
  WriteBytes(sHour + "130200A.wav", "not a RIFF file at all");
  WriteBytes(sHour + "130300C.wav", "a letter beyond the logger's formats");
  WriteBytes(sHour + "130000.LOG", "10:00:00 an old line\r\n");
  AddRow(oLog, "13", actStandardise);
  EXPECT_GT(RunToEnd(), 0);

  EXPECT_EQ(ProbeAudio(sHour + "130000A.wav").sCodec, "adpcm_ima_wav");
  EXPECT_EQ(ReadBytes(sHour + "1300ZZ.wav"), "six characters: no output letter");
  EXPECT_EQ(ReadBytes(sHour + "130100A.txt"), "unknown extension");
  EXPECT_EQ(ReadBytes(sHour + "130200A.wav"), "not a RIFF file at all");
  EXPECT_EQ(ReadBytes(sHour + "130300C.wav"), "a letter beyond the logger's formats");
  EXPECT_EQ(IniValue(sHour + "130000.inf", "StandardAudioAt"), "-1");
  const std::string sTrace = Trace();
  EXPECT_NE(sTrace.find("not processing file: " + sHour + "1300ZZ.wav"), std::string::npos);
  EXPECT_NE(sTrace.find("not processing file: " + sHour + "130200A.wav"), std::string::npos);
}

TEST_F(ProcessTest, AShortConversionIsRejectedAndTheSourceStays) {
  auto oLog = AddLogger(1);
  const std::string sHour = Dir(1, "20261122/1300/");
  WriteToneWav(sHour + "130000A.wav", 20.0);
  WriteToneWav(sHour + "130100A.wav", 2.0);
  const std::string sSource = ReadBytes(sHour + "130000A.wav");
  AddRow(oLog, "13", actStandardise);
  // The first tick opens the converted file and converts 7 s; then the disk is full
  // until the file ends.
  m_pForm->tmrProcess_Timer();
  ASSERT_TRUE(fs::exists(sHour + "130000A.wav"));
  Faults::Arm("audio.write", ENOSPC);
  m_pForm->tmrProcess_Timer();
  m_pForm->tmrProcess_Timer();
  Faults::DisarmAll();
  EXPECT_GT(RunToEnd(), 0);

  EXPECT_EQ(ReadBytes(sHour + "130000A.wav"), sSource);
  EXPECT_FALSE(fs::exists(sHour + "std130000A.wav"));
  EXPECT_TRUE(Has(Messages(), "FileArchiveError:" + sHour + "130000A.wav"));
  EXPECT_NE(Trace().find("File not expected size."), std::string::npos);
  // The next file still ran; the point stays; the row went.
  EXPECT_EQ(ProbeAudio(sHour + "130100A.wav").sCodec, "adpcm_ima_wav");
  EXPECT_EQ(IniValue(sHour + "130000.inf", "StandardAudioAt"), "2026-11-22 14:00");
  EXPECT_EQ(m_pForm->lvwItems.Count(), 0);

  // The next cycle converts only what is left.
  AddRow(oLog, "13", actStandardise);
  EXPECT_GT(RunToEnd(), 0);
  EXPECT_EQ(ProbeAudio(sHour + "130000A.wav").sCodec, "adpcm_ima_wav");
  EXPECT_NEAR(DecodedSeconds(sHour + "130000A.wav"), 20.0, 0.05);
  EXPECT_NE(HourLog(1).find("Audio already in Standard Format 130100A.wav"), std::string::npos);
  EXPECT_EQ(IniValue(sHour + "130000.inf", "StandardAudioAt"), "-1");
}

TEST_F(ProcessTest, SaveArcsKeepsTheRejectedFile) {
  m_pForm->m_bSaveArcs = true;  // "/SAVEARCS"
  auto oLog = AddLogger(1);
  const std::string sHour = Dir(1, "20261122/1300/");
  WriteToneWav(sHour + "130000A.wav", 20.0);
  AddRow(oLog, "13", actArchive);
  // Two writes in the middle of the file fail: 2 s are missing, beyond the tolerance,
  // but the file itself is finished.
  m_pForm->tmrProcess_Timer();
  Faults::Arm("audio.write", ENOSPC, 0, 2);
  EXPECT_GT(RunToEnd(), 0);
  EXPECT_TRUE(fs::exists(sHour + "arc130000A.wav"));
  EXPECT_NEAR(DecodedSeconds(sHour + "arc130000A.wav"), 18.0, 0.05);
  EXPECT_EQ(ProbeAudio(sHour + "130000A.wav").sCodec, "pcm_s16le");
  EXPECT_EQ(IniValue(sHour + "130000.inf", "ArchiveAudioAt"), "2026-11-23 00:00");
}

TEST_F(ProcessTest, TheToleranceIsReadForTheTargetsTypeOnly) {
  auto oLog = AddLogger(1);
  const std::string sHour = Dir(1, "20261122/1300/");
  WriteToneWav(sHour + "130000A.wav", 2.0);
  AddRow(oLog, "13", actStandardise);
  // A tolerance below zero fails even a perfect conversion; set for MP2 it doesn't
  // touch a WAV target.
  WriteFile("registry.reg",
            "Windows Registry Editor Version 5.00\r\n\r\n[HKEY_LOCAL_MACHINE\\SOFTWARE\\Norvane\\Kestrane v4]\r\n"
            "\"LogProcAccuracyMP2\"=\"-1\"\r\n");
  ConfigAccess::ClearCache();
  EXPECT_GT(RunToEnd(), 0);
  EXPECT_EQ(ProbeAudio(sHour + "130000A.wav").sCodec, "adpcm_ima_wav");

  WriteToneWav(sHour + "130100A.wav", 2.0);
  AddRow(oLog, "13", actStandardise);
  WriteFile("registry.reg",
            "Windows Registry Editor Version 5.00\r\n\r\n[HKEY_LOCAL_MACHINE\\SOFTWARE\\Norvane\\Kestrane v4]\r\n"
            "\"LogProcAccuracyWAV\"=\"-0.5 seconds\"\r\n");
  ConfigAccess::ClearCache();
  EXPECT_GT(RunToEnd(), 0);
  EXPECT_EQ(ProbeAudio(sHour + "130100A.wav").sCodec, "pcm_s16le");
  EXPECT_TRUE(Has(Messages(), "FileArchiveError:" + sHour + "130100A.wav"));
}

TEST_F(ProcessTest, DeletesTakeOneTickEachAndAFailedDeleteKeepsItsRow) {
  auto oLog = AddLogger(1);
  for (const char* sHour : {"05", "06", "07"}) {
    WriteToneWav(Dir(1, std::string("20261122/") + sHour + "00/" + sHour + "0000A.wav"), 0.5);
    AddRow(oLog, sHour, actDelete);
  }
  // A file of the folder that doesn't start with the hour's digits stays, and so does
  // the folder.
  WriteBytes(Dir(1, "20261122/0700/note.txt"), "x");
  // The first delete fails.
  Faults::Arm("file.delete", EACCES, 0, 1);
  m_pForm->tmrProcess_Timer();
  EXPECT_EQ(m_pForm->lvwItems.Count(), 3);
  EXPECT_NE(HourLog(1).find("ERROR deleting hour 2026-11-22 05:00("), std::string::npos) << HourLog(1);
  m_pForm->tmrProcess_Timer();
  EXPECT_EQ(m_pForm->lvwItems.Count(), 2);
  EXPECT_FALSE(fs::exists(Dir(1, "20261122/0600")));
  m_pForm->tmrProcess_Timer();
  EXPECT_EQ(m_pForm->lvwItems.Count(), 1);
  EXPECT_TRUE(fs::exists(Dir(1, "20261122/0700/note.txt")));
  EXPECT_FALSE(fs::exists(Dir(1, "20261122/0700/070000.inf")));
  EXPECT_EQ(RunToEnd(), 1);
  // The failed hour keeps its info file for the next cycle.
  EXPECT_TRUE(fs::exists(Dir(1, "20261122/0500/050000.inf")));
  EXPECT_EQ(m_pForm->lvwItems.Count(), 1);
}

TEST_F(ProcessTest, APeriodWithoutAudioRemovesTheFile) {
  auto oLog = AddLogger(1);
  // The logger keeps no archive of output A.
  oLog->AudioFormat(0)->Period(2, ChooseAudioClass(FormatNone));
  const std::string sHour = Dir(1, "20261122/1300/");
  WriteToneWav(sHour + "130000A.wav", 1.0);
  AddRow(oLog, "13", actArchive);
  EXPECT_GT(RunToEnd(), 0);
  EXPECT_FALSE(fs::exists(sHour + "130000A.wav"));
  EXPECT_EQ(IniValue(sHour + "130000.inf", "ArchiveAudioAt"), "-1");
}

TEST_F(ProcessTest, ShutdownInTheMiddleOfAFileLeavesTheSourceAndEndsTheRun) {
  auto oLog = AddLogger(1);
  const std::string sHour = Dir(1, "20261122/1300/");
  WriteToneWav(sHour + "130000A.wav", 20.0);
  const std::string sSource = ReadBytes(sHour + "130000A.wav");
  AddRow(oLog, "13", actStandardise);
  m_pForm->tmrProcess_Timer();
  m_pForm->m_bShutdown = true;
  EXPECT_EQ(RunToEnd(), 1);
  EXPECT_EQ(ReadBytes(sHour + "130000A.wav"), sSource);
  EXPECT_EQ(IniValue(sHour + "130000.inf", "StandardAudioAt"), "2026-11-22 14:00");
  EXPECT_EQ(HourLog(1).find("Finished Archiving Audio"), std::string::npos);
  EXPECT_TRUE(Has(Messages(), "IDLE"));
  EXPECT_EQ(Trace().find("Start PerformFolderTidyup"), std::string::npos);
}
