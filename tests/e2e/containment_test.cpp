// The processor as a program against what real stations meet: a second processor on the
// same root, a torn settings file, stop signals in a burst, and failures inside a tick.
#include <gtest/gtest.h>

#include <sys/wait.h>

#include <chrono>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "ProcessRun.h"

using namespace e2eproc;
using proctest::Decode;
using proctest::IniValue;

class ContainmentTest : public ProcessRunTest {
 protected:
  // Logger 1 standardises WAV to 22.05 kHz stereo IMA ADPCM and archives it to mono.
  void AddWavLogger() { AddLogger(1, true, {Periods(Wav(44100, 2, 1), Wav(22050, 2, 17), Wav(22050, 1, 17))}); }
  // Every segment of the hour is there once, whole: iSegments files that decode to
  // dSeconds each, and nothing else but the info file and the hour log.
  void ExpectHourWhole(const std::string& sHour, int iSegments, double dSeconds) {
    SCOPED_TRACE(sHour);
    int iAudio = 0;
    for (auto& e : fs::directory_iterator(sHour)) {
      const std::string sName = e.path().filename().string();
      if (sName.size() > 4 && (sName.ends_with(".inf") || sName.ends_with(".LOG"))) continue;
      ++iAudio;
      EXPECT_NEAR(Decode(e.path().string()).dSeconds, dSeconds, 0.1) << sName;
    }
    EXPECT_EQ(iAudio, iSegments);
  }
};

// An operator's build beside the installed copy: another executable, so the instance
// search lets it by; the lock of the machine root ends it at once, and the first one
// converts every file alone.
TEST_F(ContainmentTest, SecondProcessorOnTheSameRootIsRefusedAndNoAudioIsLost) {
  AddWavLogger();
  WriteRegistry(300);
  AddHour(1, "20261122", "13", kPast, kLater, kLater, 3, 6.0);
  RunningProgram oFirst;
  ASSERT_TRUE(Start(oFirst, {"/DEBUG", "/KEEPALIVE"}));
  ASSERT_TRUE(WaitForTrace("Processing file:", 30000)) << ReadFile("out.txt");

  fs::create_directories(PathIn("operator/build/bin"));
  fs::copy_file(m_sProgram, PathIn("operator/build/bin/knlogproc"));
  for (const char* sSilent : {"", "/SILENT"}) {
    SCOPED_TRACE(sSilent);
    RunningProgram oSecond;
    ASSERT_TRUE(oSecond.Start(PathIn("operator/build/bin/knlogproc"), {"/DEBUG", sSilent}, PathIn("second.txt"),
                              {"KESTRANE_CLOCK_START=2026-11-23 10:05:00"}));
    ASSERT_TRUE(oSecond.WaitEnd(20000));
    EXPECT_EQ(oSecond.ExitCode(), 0);
    const std::string sOut = ReadFile("second.txt");
    EXPECT_NE(sOut.find("<3>knlogproc: another log processor runs on the machine root"), std::string::npos) << sOut;
    EXPECT_EQ(sOut.find("There is already a copy of the Log Processor running!") != std::string::npos,
              std::string(sSilent).empty())
        << sOut;
  }
  EXPECT_NE(Trace().find("Another Log Processor holds the lock of this machine root"), std::string::npos);
  const std::string sHour = In(1, "20261122/1300/");
  ASSERT_TRUE(WaitFor([&] { return IniValue(sHour + "130000.inf", "StandardAudioAt") == "-1"; }, 120000))
      << ReadFile("out.txt");
  EXPECT_TRUE(oFirst.Running());
  oFirst.Signal(SIGTERM);
  ASSERT_TRUE(oFirst.WaitEnd(20000));
  EXPECT_EQ(oFirst.ExitCode(), 0) << ReadFile("out.txt");
  ExpectHourWhole(sHour, 3, 6.0);
  EXPECT_EQ(Decode(sHour + "130200A.wav").sCodec, "adpcm_ima_wav");
}

// A settings file torn after its first format line: the standard and archive formats are
// unknown, not "none". Nothing is removed, the hour stays due, and the hour log, the trace
// and standard error name the missing key.
TEST_F(ContainmentTest, SettingsCutAfterTheFirstFormatLineRemoveNothing) {
  AddWavLogger();
  WriteRegistry();
  AddHour(1, "20261122", "13", kPast, kLater, kLater, 2, 2.0);
  AddHour(1, "20261115", "09", "-1", kPast, kLater, 2, 2.0);
  const std::string sIni = In(1, "Kestrane.ini");
  const std::string sWhole = ReadBytes(sIni);
  const size_t iCut = sWhole.find("\n", sWhole.find("FormatType0a="));
  ASSERT_NE(iCut, std::string::npos) << sWhole;
  WriteBytes(sIni, sWhole.substr(0, iCut + 1));
  const std::string sBefore13 = ReadBytes(In(1, "20261122/1300/130000A.wav"));

  ASSERT_TRUE(RunProcessor());
  ExpectHourWhole(In(1, "20261122/1300"), 2, 2.0);
  ExpectHourWhole(In(1, "20261115/0900"), 2, 2.0);
  EXPECT_EQ(ReadBytes(In(1, "20261122/1300/130000A.wav")), sBefore13);
  EXPECT_EQ(IniValue(In(1, "20261122/1300/130000.inf"), "StandardAudioAt"), kPast);
  EXPECT_EQ(IniValue(In(1, "20261115/0900/090000.inf"), "ArchiveAudioAt"), kPast);
  EXPECT_NE(HourLog(1).find("the settings key FormatType1a is missing: 130000A.wav is kept"), std::string::npos)
      << HourLog(1);
  EXPECT_NE(ReadFile("out.txt").find("FormatType1a, FormatType2a missing"), std::string::npos) << ReadFile("out.txt");
  EXPECT_NE(Trace().find("FormatType2a is missing"), std::string::npos);
  // The torn file is left as it is.
  EXPECT_EQ(ReadBytes(sIni), sWhole.substr(0, iCut + 1));
}

// Two SIGTERMs 50 ms apart in the middle of a conversion: one orderly stop, as two
// "SHUTDOWN" messages would make: the program exits, tells the capture side "IDLE", and
// unloads; the source of the file cut short is still there.
TEST_F(ContainmentTest, SecondStopSignalChangesNothing) {
  AddWavLogger();
  WriteRegistry(1000);
  AddHour(1, "20261122", "13", kPast, kLater, kLater, 2, 30.0);
  const std::string sFirst = ReadBytes(In(1, "20261122/1300/130000A.wav"));
  RunningProgram oProc;
  ASSERT_TRUE(Start(oProc, {"/DEBUG"}));
  ASSERT_TRUE(WaitForTrace("Processing file:", 30000)) << ReadFile("out.txt");
  oProc.Signal(SIGTERM);
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  oProc.Signal(SIGTERM);
  ASSERT_TRUE(oProc.WaitEnd(20000));
  ASSERT_TRUE(WIFEXITED(oProc.Status())) << "ended by signal " << WTERMSIG(oProc.Status());
  EXPECT_EQ(oProc.ExitCode(), 0) << ReadFile("out.txt");
  EXPECT_TRUE(Heard("IDLE"));
  EXPECT_NE(Trace().find("End frmProcessLogs_Unload"), std::string::npos);
  EXPECT_EQ(ReadBytes(In(1, "20261122/1300/130000A.wav")), sFirst);
}

// An exception that escapes a tick is traced and said; the hour it hit stays due (its
// group is flagged) while the cycle goes on and ends as usual. A processor fault in a
// tick ends the process after its last words: "IDLE", the unfinished converted file
// removed, the source kept.
TEST_F(ContainmentTest, FailuresInATickAreContained) {
  AddWavLogger();
  WriteRegistry();
  for (const char* sHH : {"11", "12", "13"}) AddHour(1, "20261122", sHH, kPast, kLater, kLater, 2, 2.0);

  ASSERT_TRUE(RunProcessor({"KESTRANE_FAULTS=tick.process=EIO@3x1"}));
  EXPECT_NE(Trace().find("RT ERROR: injected tick failure"), std::string::npos);
  EXPECT_NE(ReadFile("out.txt").find("<3>knlogproc: tmrProcess_Timer: injected tick failure"), std::string::npos)
      << ReadFile("out.txt");
  EXPECT_TRUE(Heard("IDLE"));
  int iDone = 0;
  for (const char* sHH : {"11", "12", "13"}) {
    const std::string sHour = In(1, std::string("20261122/") + sHH + "00/");
    ExpectHourWhole(sHour, 2, 2.0);
    const bool bDone = IniValue(sHour + sHH + "0000.inf", "StandardAudioAt") == "-1";
    iDone += bDone;
    // An hour marked done has every file converted.
    if (bDone) {
      for (const char* sMin : {"00", "01"})
        EXPECT_EQ(Decode(sHour + sHH + sMin + "00A.wav").sCodec, "adpcm_ima_wav") << sHH << sMin;
    }
  }
  EXPECT_EQ(iDone, 2);

  // A fault: the process ends with its last words, leaving nothing half made.
  m_aHeard.clear();
  fs::remove_all(PathIn("drive_c/DebugFiles"));
  for (const char* sHH : {"11", "12", "13"}) AddHour(1, "20261122", sHH, kPast, kLater, kLater, 2, 2.0);
  RunningProgram oProc;
  ASSERT_TRUE(Start(oProc, {"/DEBUG"}, {"KESTRANE_FAULTS=tick.process=EFAULT@3x1"}));
  ASSERT_TRUE(oProc.WaitEnd(60000));
  EXPECT_EQ(oProc.ExitCode(), 70) << ReadFile("out.txt");
  const std::string sTrace = Trace();
  EXPECT_NE(sTrace.find("CRITICAL ERROR: Access Violation"), std::string::npos) << sTrace;
  EXPECT_NE(sTrace.find("RT ERROR: Access Violation (10000)"), std::string::npos);
  EXPECT_TRUE(Heard("IDLE"));
  EXPECT_NE(ReadFile("out.txt").find("<3>knlogproc: a processor fault ends the log processor"), std::string::npos);
  for (const char* sHH : {"11", "12", "13"}) ExpectHourWhole(In(1, std::string("20261122/") + sHH + "00/"), 2, 2.0);
}
