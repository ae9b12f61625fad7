#pragma once
// Helpers of the hour-processing tests: recorded segments (PCM WAV tones), hour info
// files, and ffprobe as the independent judge of what was written.
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include <QCoreApplication>

#include "audio/CAudioACM.h"
#include "common/AudioCount.h"
#include "common/TempRoot.h"
#include "common/TestUtil.h"
#include "config/ClogPeriods.h"
#include "engine/Globals.h"
#include "engine/IProcessorView.h"
#include "support/AppGlobal.h"
#include "support/Clock.h"
#include "support/DebugMsg.h"
#include "support/VbDate.h"

namespace proctest {

// The engine's global state as each test starts it: a fresh trace at level 5, the given
// command line, the default logger list, no crash filter, the clock fixed at Monday
// 23 November 2026, 10:05.
inline void ResetEngineState(const std::string& sCommandLine) {
  DebugLog::ResetForTesting();
  AppGlobal::SetDebugMode(5);
  AppGlobal::SetCommandLine(sCommandLine);
  sLogListLoc = kDefaultLogListLoc;
  UseExceptionHandler = false;
  Clock::SetFixed(VbDate::Make({2026, 11, 23, 10, 5, 0}));
}

// The application object the engine's timers need, made once.
inline QCoreApplication& App() {
  static int s_iArgc = 1;
  static char s_szName[] = "engine_test";
  static char* s_apArgv[] = {s_szName, nullptr};
  static QCoreApplication* s_pApp = new QCoreApplication(s_iArgc, s_apArgv);
  return *s_pApp;
}

// A window that shows nothing; a test overrides what it watches.
class NullView : public IProcessorView {
 public:
  void ShowForm() override {}
  void SetBusyPointer(bool) override {}
  void SetProcessorActive(bool) override {}
  void SetAllDoneCaption(const std::string&) override {}
  void SetCurrentFileCaption(const std::string&) override {}
  void SetRestartEnabled(bool) override {}
  void SetFileProgress(int) override {}
  void SetLogProgress(int) override {}
  void RowsChanged() override {}
  void Minimise() override {}
  void SaveWindowPosition() override {}
  void CloseForm() override {}
};

// A window that keeps the hour bar's values and whether it was minimised.
class LogProgressView : public NullView {
 public:
  std::vector<int> aLogProgress;
  bool bMinimised = false;
  void SetLogProgress(int i) override { aLogProgress.push_back(i); }
  void Minimise() override { bMinimised = true; }
};

// A WAV format of the given rate, channels and format tag (1 PCM, 17 IMA ADPCM).
inline std::shared_ptr<IAudioFormat> Wav(int iRate, int iChannels, int iTag) {
  auto o = std::make_shared<CAudioACM>();
  o->SetFileFormat(iRate, iChannels, iTag);
  return o;
}
// An output format with its three periods: as recorded, standard, archive.
inline std::shared_ptr<ClogPeriods> Periods(std::shared_ptr<IAudioFormat> oRec, std::shared_ptr<IAudioFormat> oStd,
                                            std::shared_ptr<IAudioFormat> oArc) {
  auto o = std::make_shared<ClogPeriods>();
  o->Period(0, std::move(oRec));
  o->Period(1, std::move(oStd));
  o->Period(2, std::move(oArc));
  return o;
}

inline void PutLe(std::string& s, uint32_t v, int iBytes) {
  for (int i = 0; i < iBytes; ++i) s += static_cast<char>((v >> (8 * i)) & 0xFF);
}

// A 16-bit PCM WAV file with a tone on every channel, parents created.
inline void WriteToneWav(const std::string& sPath, double dSeconds, int iRate = 44100, int iChannels = 2) {
  const uint32_t lFrames = static_cast<uint32_t>(std::lround(dSeconds * iRate));
  const uint32_t lData = lFrames * iChannels * 2;
  std::string s = "RIFF";
  PutLe(s, 36 + lData, 4);
  s += "WAVEfmt ";
  PutLe(s, 16, 4);
  PutLe(s, 1, 2);
  PutLe(s, iChannels, 2);
  PutLe(s, iRate, 4);
  PutLe(s, iRate * iChannels * 2, 4);
  PutLe(s, iChannels * 2, 2);
  PutLe(s, 16, 2);
  s += "data";
  PutLe(s, lData, 4);
  s.reserve(s.size() + lData);
  for (uint32_t i = 0; i < lFrames; ++i) {
    const auto v = static_cast<int16_t>(std::lround(9000.0 * std::sin(2 * M_PI * 440.0 * i / iRate)));
    for (int c = 0; c < iChannels; ++c) PutLe(s, static_cast<uint16_t>(v), 2);
  }
  std::filesystem::create_directories(std::filesystem::path(sPath).parent_path());
  std::ofstream(sPath, std::ios::binary) << s;
}

using ::ReadBytes;
using ::WriteBytes;

// An hour info file with its three action points ("-1", or a point such as
// "2026-11-22 14:00").
inline void WriteInf(const std::string& sPath, const std::string& sStandard, const std::string& sArchive,
                     const std::string& sDelete, int iSegments = 60) {
  WriteBytes(sPath, "[General]\r\nVersion=4.0\r\n[Segments]\r\nNumSegs=" + std::to_string(iSegments) +
                        "\r\n[ActionDates]\r\nStandardAudioAt=" + sStandard + "\r\nArchiveAudioAt=" + sArchive +
                        "\r\nDeleteAudioAt=" + sDelete + "\r\n");
}

// The value of a key in an ini-like file ("" when missing), case-insensitive key.
inline std::string IniValue(const std::string& sPath, const std::string& sKey) {
  std::istringstream ss(ReadBytes(sPath));
  for (std::string sLine; std::getline(ss, sLine);) {
    if (!sLine.empty() && sLine.back() == '\r') sLine.pop_back();
    const size_t i = sLine.find('=');
    if (i == std::string::npos) continue;
    std::string k = sLine.substr(0, i);
    if (k.size() == sKey.size() && strncasecmp(k.c_str(), sKey.c_str(), k.size()) == 0) return sLine.substr(i + 1);
  }
  return "";
}

// One ffmpeg run over the whole file: what it says of the first audio stream (codec,
// rate, channels; an empty codec when it can't read the file) and the seconds the file
// decodes to, whatever its header says.
struct Decoded {
  std::string sCodec;
  int iRate = 0;
  int iChannels = 0;
  double dSeconds = -1;
};

inline Decoded Decode(const std::string& sPath) {
  const audiocount::Counted c = audiocount::CountFrames(sPath);
  return {c.sCodec, c.iRate, c.iChannels, c.Seconds()};
}

// The file decodes as sCodec to dSeconds (within dTolerance).
inline void ExpectAudio(const std::string& sPath, const std::string& sCodec, double dSeconds,
                        double dTolerance = 0.05) {
  const Decoded d = Decode(sPath);
  EXPECT_EQ(d.sCodec, sCodec) << sPath;
  EXPECT_NEAR(d.dSeconds, dSeconds, dTolerance) << sPath;
}

}  // namespace proctest
