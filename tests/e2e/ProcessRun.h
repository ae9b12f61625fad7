#pragma once
// A machine root with recorders' logger trees for end-to-end runs of the processor: the
// registry, each logger's settings file, the copier and its profile file, hours of
// recorded segments with their info files, and a listener on the capture side's handler.
#include <gtest/gtest.h>

#include <fmt/format.h>

#include <sys/wait.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "RunningProgram.h"
#include "audio/CAudioNCT.h"
#include "audio/CAudioWMA.h"
#include "audio/ChooseAudioClass.h"
#include "common/TempRoot.h"
#include "common/TestUtil.h"
#include "config/CLog.h"
#include "engine/ProcessTestUtil.h"
#include "support/ConfigAccess.h"
#include "support/MessageTransport.h"

namespace e2eproc {

namespace fs = std::filesystem;

// Action points of an hour info file: one passed at the processor's clock, one weeks ahead.
inline constexpr const char* kPast = "2026-11-22 14:00";
inline constexpr const char* kLater = "2026-12-30 00:00";

using proctest::Periods;
using proctest::Wav;

inline std::shared_ptr<IAudioFormat> Compressed(int iType, int iRate, int iKbps, int iChannels) {
  auto o = std::make_shared<CAudioNCT>();
  o->SetFileFormat(iType, iRate, iKbps, iChannels, 0);
  return o;
}
inline std::shared_ptr<IAudioFormat> Wma(int iProfile) {
  auto o = std::make_shared<CAudioWMA>();
  o->SetProfileNum(iProfile);
  return o;
}

class ProcessRunTest : public ProcessorTest {
 protected:
  void SetUp() override {
    ProcessorTest::SetUp();
    const std::string sShared = PathIn("drive_c/Program Files/Common Files/Norvane Shared");
    fs::create_directories(sShared + "/Sound Shuttle");
    fs::copy_file(BinPath("SoundShuttle"), sShared + "/Sound Shuttle/SoundShuttle");
    WriteBytes(sShared + "/Kestrane v4/nvkn4.prx", "[Profiles]\r\n23 = 22050, 1, 32, Mono speech\r\n");
    ASSERT_TRUE(m_oCapture.Bind("KNCaptureMsgHandler"));
  }
  void TearDown() override {
    m_oCapture.Close();
    ProcessorTest::TearDown();
  }

  // A logger in the registry and, when enabled, its settings file. Its folder is
  // <root>/drive_d/Logger<n>.
  void AddLogger(int iNum, bool bEnabled, const std::vector<std::shared_ptr<ClogPeriods>>& aFormats) {
    m_sLoggers += "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Norvane\\Kestrane v4\\Capture\\Logger" + std::to_string(iNum) +
                  "]\r\n\"LogPath\"=\"D:\\\\Logger" + std::to_string(iNum) +
                  "\"\r\n\"Enabled\"=dword:" + (bEnabled ? "ffffffff" : "00000000") + "\r\n\r\n";
    m_iLogCount = std::max(m_iLogCount, iNum);
    fs::create_directories(LogDir(iNum));
    CLog oLog;
    oLog.Name("Logger " + std::to_string(iNum));
    oLog.NumLogSegmentsPerHour(60);
    oLog.StandardHours(24);
    oLog.ArchiveHours(24 * 7);
    oLog.DeleteHours(24 * 30);
    oLog.OutputFormatCount(static_cast<int32_t>(aFormats.size()));
    for (size_t i = 0; i < aFormats.size(); ++i) oLog.AudioFormat(static_cast<int32_t>(i), aFormats[i]);
    oLog.SaveLog(LogDir(iNum), CLog::svName | CLog::svGeneral | CLog::svLogSettings | CLog::svFormats);
    oLog.Terminate();
    // The hour of the clock, where the hour log lines go.
    fs::create_directories(LogDir(iNum) + "/20261123/1000");
  }
  // A logger with four outputs archived through the copier: MP2, MP3, Ogg and WMA
  // (letters A to D).
  void AddCopierLogger(int iNum) {
    const auto Archived = [](const std::shared_ptr<IAudioFormat>& oTo) {
      return Periods(Wav(44100, 2, 1), Wav(44100, 2, 1), oTo);
    };
    AddLogger(iNum, true,
              {Archived(Compressed(FormatMP2, 44100, 128, 2)), Archived(Compressed(FormatMP3, 44100, 128, 2)),
               Archived(Compressed(FormatOGG, 44100, 128, 2)), Archived(Wma(23))});
  }
  // The registry of the loggers added so far; the processor's ticks come back to back
  // unless iProcessInterval (ms) says otherwise, and it converts as many files at once as
  // it has cores unless iConcurrent says otherwise.
  void WriteRegistry(int iProcessInterval = 0, int iConcurrent = 0) {
    WriteFile("registry.reg",
              "Windows Registry Editor Version 5.00\r\n\r\n"
              "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Norvane\\Kestrane v4\\Capture]\r\n\"LogCount\"=dword:0000000" +
                  std::to_string(m_iLogCount) + "\r\n\r\n" + m_sLoggers +
                  "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Norvane\\Kestrane v4\\Log Processor]\r\n"
                  "\"PrepareTimerInterval\"=dword:00000000\r\n\"ProcessTimerInterval\"=dword:" +
                  fmt::format("{:08x}", iProcessInterval) + "\r\n" +
                  (iConcurrent ? fmt::format("\"ConcurrentConversions\"=dword:{:08x}\r\n", iConcurrent) : ""));
    ConfigAccess::ClearCache();
  }
  std::string LogDir(int iNum) const { return PathIn("drive_d/Logger" + std::to_string(iNum)); }
  // <logger folder>/<sRel>
  std::string In(int iNum, const std::string& sRel) const { return LogDir(iNum) + "/" + sRel; }

  // An hour folder "<day>/<HH>00" with its info file and iSegments recorded segments
  // (minutes 00, 01, ...) for each of the output letters.
  void AddHour(int iNum, const std::string& sDay, const std::string& sHH, const std::string& sStd,
               const std::string& sArc, const std::string& sDel, int iSegments, double dSeconds,
               const std::string& sLetters = "A") {
    const std::string sFolder = In(iNum, sDay + "/" + sHH + "00/");
    proctest::WriteInf(sFolder + sHH + "0000.inf", sStd, sArc, sDel);
    for (int i = 0; i < iSegments; ++i)
      for (char c : sLetters) proctest::WriteToneWav(sFolder + sHH + fmt::format("{:02}00", i) + c + ".wav", dSeconds);
  }

  // Starts the processor with the clock at 2026-11-23 10:05:00.
  bool Start(RunningProgram& oProc, const std::vector<std::string>& aArgs, const std::vector<std::string>& aEnv = {}) {
    std::vector<std::string> aFullEnv = {"KESTRANE_CLOCK_START=2026-11-23 10:05:00"};
    aFullEnv.insert(aFullEnv.end(), aEnv.begin(), aEnv.end());
    return oProc.Start(m_sProgram, aArgs, PathIn("out.txt"), aFullEnv);
  }
  // Runs the processor to its end (no "/KEEPALIVE"): a failure, with its output, when it
  // didn't end in time or didn't exit with 0.
  ::testing::AssertionResult RunProcessor(const std::vector<std::string>& aEnv = {},
                                          const std::vector<std::string>& aArgs = {"/DEBUG"}) {
    RunningProgram oProc;
    if (Start(oProc, aArgs, aEnv) && oProc.WaitEnd(120000) && oProc.ExitCode() == 0)
      return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << ReadFile("out.txt");
  }
  // Whether the capture side has heard s so far.
  bool Heard(const std::string& s) {
    while (auto m = m_oCapture.Receive()) m_aHeard.push_back(m->Text);
    return std::find(m_aHeard.begin(), m_aHeard.end(), s) != m_aHeard.end();
  }
  std::string HourLog(int iNum) const { return ReadBytes(In(iNum, "20261123/1000/100000.LOG")); }

  std::string m_sLoggers;
  int m_iLogCount = 0;
  MessageEndpoint m_oCapture;
  std::vector<std::string> m_aHeard;
};

}  // namespace e2eproc
