// Throughput of a whole processing cycle of the built knlogproc, with the tick throttle
// off (both timer intervals 0): a tree of loggers x hours x one-minute segments of
// 44.1 kHz stereo PCM is standardised to 22.05 kHz stereo IMA ADPCM in process (the WAV
// path), and a second tree is archived to MP2 through the external copier (the copier
// path). Reports seconds of audio converted per second of wall time and the peak
// resident memory of the processor (and of the copier).
//
//   bench_process [--loggers 8] [--hours 1] [--segments 60] [--seconds 60]
//                 [--copier-hours 1] [--copier-segments 10] [--dir /tmp]
//
// The full tree is 8 loggers x 24 hours x 60 segments; --hours scales it down to what the
// disk holds (each one-minute segment is 10.6 MB), and the figure per second holds for
// any size since the work is the same file after file.
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "audio/AudioTypes.h"
#include "audio/CAudioACM.h"
#include "audio/CAudioNCT.h"
#include "config/CLog.h"
#include "config/ClogPeriods.h"
#include "support/ConfigAccess.h"

extern char** environ;
namespace fs = std::filesystem;

namespace {

struct Options {
  int iLoggers = 8;
  int iHours = 1;
  int iSegments = 60;
  int iSeconds = 60;
  int iCopierHours = 1;
  int iCopierSegments = 10;
  std::string sDir = "/tmp";
};

void PutLe(std::string& s, uint32_t v, int iBytes) {
  for (int i = 0; i < iBytes; ++i) s += static_cast<char>((v >> (8 * i)) & 0xFF);
}

std::string ToneWav(int iSeconds) {
  const uint32_t lFrames = static_cast<uint32_t>(iSeconds) * 44100;
  const uint32_t lData = lFrames * 4;
  std::string s = "RIFF";
  PutLe(s, 36 + lData, 4);
  s += "WAVEfmt ";
  PutLe(s, 16, 4);
  PutLe(s, 1, 2);
  PutLe(s, 2, 2);
  PutLe(s, 44100, 4);
  PutLe(s, 176400, 4);
  PutLe(s, 4, 2);
  PutLe(s, 16, 2);
  s += "data";
  PutLe(s, lData, 4);
  s.reserve(s.size() + lData);
  for (uint32_t i = 0; i < lFrames; ++i) {
    // A tone with a slow sweep, so the encoder sees changing audio.
    const double t = static_cast<double>(i) / 44100;
    const auto v = static_cast<int16_t>(std::lround(9000.0 * std::sin(2 * M_PI * (300.0 + 50.0 * std::sin(t)) * t)));
    PutLe(s, static_cast<uint16_t>(v), 2);
    PutLe(s, static_cast<uint16_t>(-v), 2);
  }
  return s;
}

void WriteText(const fs::path& p, const std::string& s) {
  fs::create_directories(p.parent_path());
  std::ofstream(p, std::ios::binary) << s;
}

std::shared_ptr<IAudioFormat> Wav(int iRate, int iChannels, int iTag) {
  auto o = std::make_shared<CAudioACM>();
  o->SetFileFormat(iRate, iChannels, iTag);
  return o;
}

// A machine root with iLoggers loggers, each with iHours hours of iSegments segments due
// for the action (1 standardise to IMA ADPCM, 2 archive to MP2 through the copier).
void BuildRoot(const fs::path& root, const Options& o, int iAction, int iHours, int iSegments,
               const std::string& sTone) {
  // dword values are hexadecimal.
  char szCount[16];
  std::snprintf(szCount, sizeof szCount, "%08x", o.iLoggers);
  std::string sReg =
      "Windows Registry Editor Version 5.00\r\n\r\n"
      "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Norvane\\Kestrane v4\\Capture]\r\n\"LogCount\"=dword:" +
      std::string(szCount) + "\r\n\r\n";
  setenv("KESTRANE_ROOT", root.c_str(), 1);
  ConfigAccess::ClearCache();
  for (int iLog = 1; iLog <= o.iLoggers; ++iLog) {
    const fs::path logDir = root / "drive_d" / ("Logger" + std::to_string(iLog));
    sReg += "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Norvane\\Kestrane v4\\Capture\\Logger" + std::to_string(iLog) +
            "]\r\n\"LogPath\"=\"" + logDir.string() + "\"\r\n\"Enabled\"=dword:ffffffff\r\n\r\n";
    CLog oLog;
    oLog.Name("Logger " + std::to_string(iLog));
    auto oPeriods = std::make_shared<ClogPeriods>();
    oPeriods->Period(0, Wav(44100, 2, 1));
    oPeriods->Period(1, Wav(22050, 2, 17));
    auto oMp2 = std::make_shared<CAudioNCT>();
    oMp2->SetFileFormat(FormatMP2, 44100, 128, 2, 0);
    oPeriods->Period(2, oMp2);
    oLog.AudioFormat(0, oPeriods);
    fs::create_directories(logDir);
    oLog.SaveLog(logDir.string(), CLog::svName | CLog::svLogSettings | CLog::svFormats);
    oLog.Terminate();
    for (int h = 0; h < iHours; ++h) {
      char szHour[12];
      std::snprintf(szHour, sizeof szHour, "%02d", h);
      const fs::path hour = logDir / "20261122" / (std::string(szHour) + "00");
      WriteText(hour / (std::string(szHour) + "0000.inf"),
                std::string("[General]\r\nVersion=4.0\r\n[Segments]\r\nNumSegs=60\r\n[ActionDates]\r\n") +
                    "StandardAudioAt=" + (iAction == 1 ? "2026-11-22 23:00" : "-1") + "\r\nArchiveAudioAt=" +
                    (iAction == 2 ? "2026-11-22 23:00" : "-1") + "\r\nDeleteAudioAt=2099-01-01 00:00\r\n");
      for (int m = 0; m < iSegments; ++m) {
        char szName[32];
        std::snprintf(szName, sizeof szName, "%s%02d00A.wav", szHour, m);
        std::ofstream(hour / szName, std::ios::binary) << sTone;
      }
    }
  }
  sReg +=
      "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Norvane\\Kestrane v4\\Log Processor]\r\n"
      "\"PrepareTimerInterval\"=dword:00000000\r\n\"ProcessTimerInterval\"=dword:00000000\r\n";
  WriteText(root / "registry.reg", sReg);
  const fs::path shared = root / "drive_c/Program Files/Common Files/Norvane Shared";
  fs::create_directories(shared / "Sound Shuttle");
  fs::copy_file(fs::path(KN_BIN_DIR) / "SoundShuttle", shared / "Sound Shuttle/SoundShuttle",
                fs::copy_options::overwrite_existing);
  fs::copy_file(fs::path(KN_BIN_DIR) / "knlogproc", root / "knlogproc", fs::copy_options::overwrite_existing);
}

struct RunResult {
  double dWallSecs = 0;
  long lMaxRssKb = 0;  // of the largest child (processor or copier)
  int iStatus = -1;
};

RunResult RunProcessor(const fs::path& root) {
  RunResult r;
  const std::string sProgram = (root / "knlogproc").string();
  std::vector<std::string> aEnv;
  for (char** e = environ; *e; ++e) {
    std::string s = *e;
    if (s.rfind("DISPLAY=", 0) == 0 || s.rfind("WAYLAND_DISPLAY=", 0) == 0 || s.rfind("QT_QPA_PLATFORM=", 0) == 0 ||
        s.rfind("KESTRANE_ROOT=", 0) == 0)
      continue;
    aEnv.push_back(s);
  }
  aEnv.push_back("KESTRANE_ROOT=" + root.string());
  std::vector<char*> aEnvp;
  for (auto& s : aEnv) aEnvp.push_back(s.data());
  aEnvp.push_back(nullptr);
  std::string sArg0 = sProgram;
  char* aArgv[] = {sArg0.data(), nullptr};
  const auto t0 = std::chrono::steady_clock::now();
  pid_t pid = 0;
  if (posix_spawn(&pid, sProgram.c_str(), nullptr, nullptr, aArgv, aEnvp.data()) != 0) return r;
  int iStatus = 0;
  struct rusage ru {};
  wait4(pid, &iStatus, 0, &ru);
  r.dWallSecs = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
  r.lMaxRssKb = ru.ru_maxrss;
  r.iStatus = iStatus;
  return r;
}

long CopierPeakKb() {
  struct rusage ru {};
  getrusage(RUSAGE_CHILDREN, &ru);
  return ru.ru_maxrss;
}

int CountConverted(const fs::path& root, const std::string& sExt, const std::string& sCodecMagic) {
  int n = 0;
  for (auto& e : fs::recursive_directory_iterator(root / "drive_d")) {
    if (!e.is_regular_file() || e.path().extension() != sExt) continue;
    std::ifstream f(e.path(), std::ios::binary);
    char sz[64] = {};
    f.read(sz, sizeof sz);
    if (std::string(sz, sizeof sz).find(sCodecMagic) != std::string::npos) ++n;
  }
  return n;
}

}  // namespace

int main(int argc, char** argv) {
  Options o;
  for (int i = 1; i + 1 < argc; i += 2) {
    const std::string k = argv[i];
    const int v = std::atoi(argv[i + 1]);
    if (k == "--loggers") o.iLoggers = v;
    else if (k == "--hours") o.iHours = v;
    else if (k == "--segments") o.iSegments = v;
    else if (k == "--seconds") o.iSeconds = v;
    else if (k == "--copier-hours") o.iCopierHours = v;
    else if (k == "--copier-segments") o.iCopierSegments = v;
    else if (k == "--dir") o.sDir = argv[i + 1];
    else {
      std::fprintf(stderr, "unknown option %s\n", k.c_str());
      return 2;
    }
  }
  const std::string sTone = ToneWav(o.iSeconds);

  std::string sTemplate = o.sDir + "/kn-bench-process-XXXXXX";
  if (!mkdtemp(sTemplate.data())) {
    std::perror("mkdtemp");
    return 1;
  }
  const fs::path base = sTemplate;

  // WAV path.
  const fs::path wavRoot = base / "wav";
  BuildRoot(wavRoot, o, 1, o.iHours, o.iSegments, sTone);
  const double dWavAudio = static_cast<double>(o.iLoggers) * o.iHours * o.iSegments * o.iSeconds;
  const RunResult rw = RunProcessor(wavRoot);
  const int iWavDone = CountConverted(wavRoot, ".wav", std::string("\x11\x00", 2));
  std::printf("WAV path (PCM 44.1 kHz stereo -> IMA ADPCM 22.05 kHz stereo, in process)\n");
  std::printf("  tree: %d loggers x %d hours x %d segments of %d s = %.0f s of audio; converted files: %d\n",
              o.iLoggers, o.iHours, o.iSegments, o.iSeconds, dWavAudio, iWavDone);
  std::printf("  wall %.2f s, %.0f x real time, processor peak RSS %.1f MB, exit status %d\n", rw.dWallSecs,
              dWavAudio / rw.dWallSecs, rw.lMaxRssKb / 1024.0, rw.iStatus);
  std::printf("  full tree (8 x 24 x 60 minutes = 691200 s) at this rate: %.0f s\n",
              691200.0 / (dWavAudio / rw.dWallSecs));
  fs::remove_all(wavRoot);

  // Copier path.
  const fs::path mp2Root = base / "mp2";
  BuildRoot(mp2Root, o, 2, o.iCopierHours, o.iCopierSegments, sTone);
  const double dMp2Audio = static_cast<double>(o.iLoggers) * o.iCopierHours * o.iCopierSegments * o.iSeconds;
  const RunResult rm = RunProcessor(mp2Root);
  int iMp2Done = 0;
  for (auto& e : fs::recursive_directory_iterator(mp2Root / "drive_d"))
    if (e.is_regular_file() && e.path().extension() == ".mp2") ++iMp2Done;
  std::printf("Copier path (PCM 44.1 kHz stereo -> MP2 128 kbit/s through SoundShuttle)\n");
  std::printf("  tree: %d loggers x %d hours x %d segments of %d s = %.0f s of audio; converted files: %d\n",
              o.iLoggers, o.iCopierHours, o.iCopierSegments, o.iSeconds, dMp2Audio, iMp2Done);
  std::printf("  wall %.2f s, %.0f x real time, peak RSS of the largest child %.1f MB, exit status %d\n", rm.dWallSecs,
              dMp2Audio / rm.dWallSecs, rm.lMaxRssKb / 1024.0, rm.iStatus);
  std::printf("  largest child over both runs: %.1f MB\n", CopierPeakKb() / 1024.0);
  fs::remove_all(base);
  return 0;
}
