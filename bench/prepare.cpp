// Work-list preparation over a recorder's tree: 10,000 hours over 8 loggers (each hour
// folder with its info file and two audio files), the tick throttle off (every tick
// walks as many entries as there are). Prints the hours a second of each cycle, the
// resident memory after it, and the peak.
//
//   bench_prepare [cycles=20] [hours=10000] [loggers=8]
//
// The first cycle reads every info file (and so fills the reader's cache); the others run
// warm, with one stat for each unchanged file. The list of one cycle (about a third of
// the hours are due) is cleared at the start of the next, so memory must level off.
#include <QCoreApplication>

#include <fmt/format.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "config/CLogList.h"
#include "engine/Globals.h"
#include "engine/frmProcessLogs.h"
#include "support/AppGlobal.h"
#include "support/Clock.h"
#include "support/ConfigAccess.h"
#include "support/VbDate.h"

namespace fs = std::filesystem;

namespace {

void Write(const std::string& sPath, const std::string& sText) {
  std::ofstream f(sPath, std::ios::binary | std::ios::trunc);
  f << sText;
}

std::string Settings(int iLog) {
  std::string s = fmt::format(
      "[General]\r\nName=Logger {}\r\nOutputCount=2\r\n[LogSettings]\r\nSegmentsPerHour=60\r\n"
      "StandardAudioAfterHours=48\r\nArchiveAudioAfterHours=336\r\nDeleteAudioAfterHours=2160\r\n"
      "[Logtypes]\r\n",
      iLog);
  for (char f : {'a', 'b'})
    for (int p = 0; p < 3; ++p) s += fmt::format("FormatType{}{}=2\r\n", p, f);
  const int aRates[2][3] = {{44100, 22050, 11025}, {32000, 16000, 8000}};
  for (int f = 0; f < 2; ++f)
    for (int p = 0; p < 3; ++p)
      s += fmt::format("[OutputFormat{}{}]\r\nSampleRate={}\r\nChannels={}\r\nFormatTag={}\r\n", p,
                       static_cast<char>('a' + f), aRates[f][p], 2 - (p / 2), p == 2 ? 17 : 1);
  return s;
}

// The tree of a recorder: days of 24 hours back from the day before "now", hours spread
// evenly over the loggers. Each hour's state follows its age, as the capture side would
// have set it: recent hours due for nothing, older ones standardised or due.
void MakeTree(const std::string& sRoot, int iHours, int iLoggers) {
  std::string sReg = fmt::format(
      "Windows Registry Editor Version 5.00\r\n\r\n[HKEY_LOCAL_MACHINE\\SOFTWARE\\Norvane\\Kestrane v4\\Capture]\r\n"
      "\"LogCount\"=dword:{:08x}\r\n\r\n",
      iLoggers);
  for (int l = 1; l <= iLoggers; ++l)
    sReg += fmt::format(
        "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Norvane\\Kestrane v4\\Capture\\Logger{0}]\r\n"
        "\"LogPath\"=\"D:\\\\Kestrane\\\\Logger{0}\"\r\n\"Enabled\"=dword:ffffffff\r\n\r\n",
        l);
  sReg +=
      "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Norvane\\Kestrane v4\\Log Processor]\r\n"
      "\"PrepareTimerInterval\"=dword:00000000\r\n\"PrepareHoursPerPing\"=dword:7fffffff\r\n";
  Write(sRoot + "/registry.reg", sReg);

  const int32_t lToday = VbDate::DateSerial(2026, 11, 23);
  for (int l = 1; l <= iLoggers; ++l) {
    const std::string sLog = fmt::format("{}/drive_d/Kestrane/Logger{}", sRoot, l);
    fs::create_directories(sLog);
    Write(sLog + "/Kestrane.ini", Settings(l));
    const int iMine = iHours / iLoggers + (l <= iHours % iLoggers ? 1 : 0);
    for (int h = 0; h < iMine; ++h) {
      const int32_t lDay = lToday - 1 - h / 24;
      const int iHour = 23 - h % 24;
      const std::string sHour = fmt::format("{}/{}/{:02d}00", sLog, VbDate::Format(lDay, "yyyymmdd"), iHour);
      fs::create_directories(sHour);
      auto Point = [&](int iAfterHours) {
        const double d = lDay + iHour / 24.0 + iAfterHours / 24.0;
        return VbDate::Format(d, "yyyymmdd hh") + "00";
      };
      // Age in hours: over 336 the archive is due, over 48 the standard step is done.
      const std::string sStandard = h > 96 ? "-1" : Point(48);
      const std::string sArchive = h > 400 && h % 3 ? "-1" : Point(336);
      Write(fmt::format("{}/{:02d}0000.inf", sHour, iHour),
            fmt::format("[General]\r\nVersion=4.0\r\n[ActionDates]\r\nStandardAudioAt={}\r\nArchiveAudioAt={}\r\n"
                        "DeleteAudioAt={}\r\n[Segments]\r\nNumSegs=60\r\n",
                        sStandard, sArchive, Point(2160)));
      Write(fmt::format("{}/{:02d}0000A.wav", sHour, iHour), "");
      Write(fmt::format("{}/{:02d}0000B.wav", sHour, iHour), "");
    }
  }
}

// Processor time of this process, in seconds: on a machine shared with other work the
// wall time of a cycle also holds the time the process waited for a processor.
double CpuSeconds() {
  struct timespec ts {};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &ts);
  return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) / 1e9;
}

long CurrentRssKb() {
  std::ifstream f("/proc/self/statm");
  long lPages = 0, lResident = 0;
  f >> lPages >> lResident;
  return lResident * (sysconf(_SC_PAGESIZE) / 1024);
}

long PeakRssKb() {
  struct rusage ru {};
  getrusage(RUSAGE_SELF, &ru);
  return ru.ru_maxrss;
}

}  // namespace

int main(int argc, char** argv) {
  const int iCycles = argc > 1 ? std::atoi(argv[1]) : 20;
  const int iHours = argc > 2 ? std::atoi(argv[2]) : 10000;
  const int iLoggers = argc > 3 ? std::atoi(argv[3]) : 8;

  std::string sRoot = (fs::temp_directory_path() / "knbench-prepare.XXXXXX").string();
  if (!mkdtemp(sRoot.data())) return 1;
  setenv("KESTRANE_ROOT", sRoot.c_str(), 1);
  QCoreApplication oApp(argc, argv);
  AppGlobal::SetDebugMode(0);
  sLogListLoc = kDefaultLogListLoc;
  Clock::SetFixed(VbDate::Make({2026, 11, 23, 10, 5, 0}));

  auto t0 = std::chrono::steady_clock::now();
  MakeTree(sRoot, iHours, iLoggers);
  const double dSetUp = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
  // A recorder's hours are older than the two seconds after which the reader keeps what a
  // file holds; a tree made just now would be read whole for its first seconds.
  std::this_thread::sleep_for(std::chrono::seconds(3));
  ConfigAccess::ClearCache();
  LogList().LoadLogs(sLogListLoc);
  std::printf("tree: %d hours over %d loggers in %s (set up in %.1f s); RSS before the first cycle %ld kB\n", iHours,
              LogList().Count(), sRoot.c_str(), dSetUp, CurrentRssKb());

  frmProcessLogs oForm;
  std::vector<double> aRates, aCpuRates;
  long lRssAfterFirst = 0;
  for (int c = 1; c <= iCycles; ++c) {
    auto tStart = std::chrono::steady_clock::now();
    const double dCpuStart = CpuSeconds();
    oForm.tmrPrepareLists().start();
    int iTicks = 0;
    while (oForm.tmrPrepareLists().isActive()) {
      oForm.tmrPrepareLists_Timer();
      ++iTicks;
    }
    const double dSecs = std::chrono::duration<double>(std::chrono::steady_clock::now() - tStart).count();
    const double dCpu = CpuSeconds() - dCpuStart;
    const double dRate = iHours / dSecs;
    aRates.push_back(dRate);
    aCpuRates.push_back(iHours / dCpu);
    if (c == 1) lRssAfterFirst = CurrentRssKb();
    std::printf("cycle %2d: %6d rows, %3d ticks, %7.1f ms (%7.1f ms processor), %9.0f hours/s, RSS %ld kB\n", c,
                oForm.Rows().Count(), iTicks, dSecs * 1000.0, dCpu * 1000.0, dRate, CurrentRssKb());
  }
  if (aRates.size() > 1) {
    std::vector<double> aWarm(aRates.begin() + 1, aRates.end());
    std::sort(aWarm.begin(), aWarm.end());
    std::vector<double> aWarmCpu(aCpuRates.begin() + 1, aCpuRates.end());
    std::sort(aWarmCpu.begin(), aWarmCpu.end());
    std::printf("warm, by processor time: median %.0f hours/s\n", aWarmCpu[aWarmCpu.size() / 2]);
    std::printf(
        "warm: median %.0f hours/s (best %.0f, worst %.0f); RSS after cycle 1 %ld kB, after cycle %d %ld kB; "
        "peak RSS %ld kB\n",
        aWarm[aWarm.size() / 2], aWarm.back(), aWarm.front(), lRssAfterFirst, iCycles, CurrentRssKb(), PeakRssKb());
  }
  oForm.RowsForTesting().Clear();
  LogList().Clear();
  fs::remove_all(sRoot);
  return 0;
}
