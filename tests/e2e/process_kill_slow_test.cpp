// The processor killed (SIGKILL) at random moments of runs over several loggers, with WAV
// targets converted in the process and compressed targets made by the copier: after each
// kill every segment is still there, whole, in its source or its target format, and no
// settings, registry or hour info file is damaged; a run that follows finishes the job and
// leaves each segment exactly once, with nothing of the program's own left behind. The
// trials take turns with 2 and with 4 conversions at once ("ConcurrentConversions").
//
// KN_KILL_TRIALS (default 200) and KN_KILL_SEED (default: a fresh one) set the trials; the
// seed and the counts are printed, so that a failing trial can be run again, and for each
// count how many conversions were at work at the kills.
#include <gtest/gtest.h>

#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "ProcessRun.h"
#include "common/AudioCount.h"

using namespace e2eproc;
using audiocount::CountFrames;
using proctest::IniValue;

namespace {
constexpr double kSeconds = 1.5;

// Whether a process runs whose executable is sPath (an orphaned copier).
bool ProgramRuns(const std::string& sPath) {
  std::error_code ec;
  for (auto& e : fs::directory_iterator("/proc", ec)) {
    char szLink[4096];
    const std::string sExe = e.path().string() + "/exe";
    const ssize_t n = readlink(sExe.c_str(), szLink, sizeof szLink - 1);
    if (n <= 0) continue;
    szLink[n] = '\0';
    if (sPath == szLink) return true;
  }
  return false;
}

// The conversions at work in the processor pid: its worker threads, which bear the
// process's own name (the main thread does too; threads of the libraries are named).
int ConversionsAtWork(pid_t pid) {
  const std::string sProc = "/proc/" + std::to_string(pid);
  const std::string sName = ReadBytes(sProc + "/comm");
  if (sName.empty()) return 0;
  int iSame = 0;
  std::error_code ec;
  for (auto& e : fs::directory_iterator(sProc + "/task", ec))
    if (ReadBytes(e.path().string() + "/comm") == sName) ++iSame;
  return std::max(iSame - 1, 0);
}

struct Segment {
  std::string sFolder;  // hour folder with "/"
  std::string sTitle;   // e.g. "130000A"
  std::string sTarget;  // the target's extension
  std::string sCodec;   // the target's codec as ffmpeg names it
};

// A decoded length that holds the whole segment: PCM and ADPCM within a block, the
// copier's formats within a frame or two and their encoder delay.
bool Whole(const audiocount::Counted& c, bool bCompressed) {
  const double dSlack = bCompressed ? 0.15 : 0.05;
  return c.lFrames > 0 && c.Seconds() >= kSeconds - dSlack && c.Seconds() <= kSeconds + dSlack;
}

}  // namespace

class ProcessKillTest : public ProcessRunTest {
 protected:
  // Enough files to a group that iConcurrent conversions are at work at once, both of
  // WAV targets (worker threads) and of the copier's (a copier process a worker).
  void BuildTree(int iConcurrent) {
    m_aSegments.clear();
    m_sLoggers.clear();
    m_iLogCount = 0;
    AddLogger(1, true, {Periods(Wav(44100, 2, 1), Wav(22050, 2, 17), Wav(22050, 1, 17))});
    AddLogger(2, true, {Periods(Wav(44100, 2, 1), Wav(44100, 2, 1), Compressed(FormatMP2, 44100, 128, 2))});
    AddLogger(3, true, {Periods(Wav(44100, 2, 1), Wav(22050, 1, 17), Wav(22050, 1, 17))});
    // Two outputs: A archived to MP3 by the copier, B standardised to PCM at another rate.
    AddLogger(4, true,
              {Periods(Wav(44100, 2, 1), Wav(44100, 2, 1), Compressed(FormatMP3, 44100, 128, 2)),
               Periods(Wav(44100, 2, 1), Wav(22050, 1, 1), Wav(22050, 1, 1))});
    WriteRegistry(0, iConcurrent);
    constexpr int kMany = 6, kFew = 5;
    AddHour(1, "20261122", "13", kPast, kLater, kLater, kMany, kSeconds);
    AddHour(2, "20261115", "09", "-1", kPast, kLater, kFew, kSeconds);
    AddHour(3, "20261122", "13", kPast, kLater, kLater, kFew, kSeconds);
    AddHour(4, "20261115", "09", "-1", kPast, kLater, kFew, kSeconds, "A");
    AddHour(4, "20261122", "13", kPast, kLater, kLater, kFew, kSeconds, "B");
    for (int i = 0; i < kMany; ++i) {
      const std::string sMinute = fmt::format("{:02}00", i);
      m_aSegments.push_back({In(1, "20261122/1300/"), "13" + sMinute + "A", "wav", "adpcm_ima_wav"});
      if (i >= kFew) continue;
      m_aSegments.push_back({In(2, "20261115/0900/"), "09" + sMinute + "A", "mp2", "mp2"});
      m_aSegments.push_back({In(3, "20261122/1300/"), "13" + sMinute + "A", "wav", "adpcm_ima_wav"});
      m_aSegments.push_back({In(4, "20261115/0900/"), "09" + sMinute + "A", "mp3", "mp3"});
      m_aSegments.push_back({In(4, "20261122/1300/"), "13" + sMinute + "B", "wav", "pcm_s16le"});
    }
    m_aInfs = {{In(1, "20261122/1300/130000.inf"), "StandardAudioAt"},
               {In(2, "20261115/0900/090000.inf"), "ArchiveAudioAt"},
               {In(3, "20261122/1300/130000.inf"), "StandardAudioAt"},
               {In(4, "20261115/0900/090000.inf"), "ArchiveAudioAt"},
               {In(4, "20261122/1300/130000.inf"), "StandardAudioAt"}};
    // The files that no run may change.
    m_aKept.clear();
    for (const std::string& s : {PathIn("registry.reg"), In(1, "Kestrane.ini"), In(2, "Kestrane.ini"),
                                 In(3, "Kestrane.ini"), In(4, "Kestrane.ini")})
      m_aKept.emplace_back(s, ReadBytes(s));
  }

  // A problem found: its kind, for the tally, and what exactly was seen.
  void Problem(const std::string& sKind, const std::string& sDetail) { m_aProblems.push_back({sKind, sDetail}); }

  // Every segment has at least one whole copy: its source, or its converted file under
  // the final or the temporary name (between the delete of the source and the rename).
  // A file under the segment's own name is never damaged; only a temporary file may be
  // cut short by the kill.
  void CheckNothingLost() {
    for (const Segment& s : m_aSegments) {
      const std::string sSource = s.sFolder + s.sTitle + ".wav";
      std::vector<std::string> aNames = {sSource};
      if (s.sTarget != "wav") aNames.push_back(s.sFolder + s.sTitle + "." + s.sTarget);
      for (const char* sPrefix : {"std", "arc"}) aNames.push_back(s.sFolder + sPrefix + s.sTitle + "." + s.sTarget);
      int iWhole = 0;
      for (const std::string& sName : aNames) {
        if (!fs::exists(sName)) continue;
        const auto c = CountFrames(sName);
        const bool bCodec = c.sCodec == s.sCodec || (sName == sSource && c.sCodec == "pcm_s16le");
        const bool bOk = bCodec && Whole(c, s.sTarget != "wav");
        if (bOk) ++iWhole;
        const bool bOwnName = sName.find("/std") == std::string::npos && sName.find("/arc") == std::string::npos;
        if (bOwnName && !bOk)
          Problem("after a kill, a segment's own file is damaged",
                  fmt::format("{}: '{}', {} s", sName, c.sCodec, c.Seconds()));
      }
      if (iWhole == 0) Problem("after a kill, no whole copy of a segment", s.sFolder + s.sTitle);
    }
    CheckSettingsAndInfs("after a kill");
  }

  // Every segment is in its target format exactly once, under its own name; each hour
  // folder holds its info file and its segments and nothing else (no temporary file
  // outlives the run), and every hour is marked done.
  void CheckAllDone() {
    for (const Segment& s : m_aSegments) {
      const auto c = CountFrames(s.sFolder + s.sTitle + "." + s.sTarget);
      if (c.sCodec != s.sCodec || !Whole(c, s.sTarget != "wav"))
        Problem("after the next run, a segment is not whole in its target format",
                fmt::format("{}{}.{}: '{}', {} s", s.sFolder, s.sTitle, s.sTarget, c.sCodec, c.Seconds()));
    }
    for (const auto& [sInf, sKey] : m_aInfs) {
      if (IniValue(sInf, sKey) != "-1") Problem("after the next run, an hour is not marked done", sInf);
      const fs::path oFolder = fs::path(sInf).parent_path();
      std::vector<std::string> aExpected = {fs::path(sInf).filename().string()};
      for (const Segment& s : m_aSegments)
        if (fs::path(s.sFolder) == oFolder / "") aExpected.push_back(s.sTitle + "." + s.sTarget);
      for (auto& e : fs::directory_iterator(oFolder)) {
        const std::string sName = e.path().filename().string();
        if (std::find(aExpected.begin(), aExpected.end(), sName) == aExpected.end())
          Problem("after the next run, a file is left in the hour folder", (oFolder / sName).string());
      }
    }
    CheckSettingsAndInfs("after the next run");
  }

  void CheckSettingsAndInfs(const std::string& sWhen) {
    for (const auto& [sInf, sKey] : m_aInfs) {
      const std::string sPoint = IniValue(sInf, sKey);
      if (IniValue(sInf, "Version") != "4.0" || IniValue(sInf, "NumSegs") != "60" ||
          IniValue(sInf, "DeleteAudioAt") != kLater || (sPoint != "-1" && sPoint != kPast))
        Problem(sWhen + ", an hour info file is damaged", sInf + ":\n" + ReadBytes(sInf));
    }
    for (const auto& [sPath, sBytes] : m_aKept)
      if (ReadBytes(sPath) != sBytes) Problem(sWhen + ", a settings or registry file changed", sPath);
  }

  void WaitForOrphanedCopiers() {
    const std::string sCopier = PathIn("drive_c/Program Files/Common Files/Norvane Shared/Sound Shuttle/SoundShuttle");
    if (!WaitFor([&] { return !ProgramRuns(sCopier); }, 30000)) Problem("a copier outlived its processor", sCopier);
  }

  void RemoveTrees() {
    std::error_code ec;
    for (int i = 1; i <= 4; ++i) fs::remove_all(LogDir(i), ec);
  }

  // What the trials with one count of conversions at once saw.
  struct PerCount {
    int iRunMs = 0;       // a whole run, to spread the kills over it
    int iMostAtWork = 0;  // the most conversions seen at work at once in a whole run
    int iTrials = 0, iKilledInRun = 0, iFailed = 0;
    std::map<int, int> aAtKill;  // conversions at work at the kill -> trials
  };

  // An uninterrupted run with iCount at once: it must finish the job, and keep iCount
  // conversions at work at some moment, or the trials of that count prove little.
  void WholeRun(int iCount, PerCount& oPer) {
    RemoveTrees();
    BuildTree(iCount);
    m_aProblems.clear();
    RunningProgram oProc;
    const auto tStart = std::chrono::steady_clock::now();
    ASSERT_TRUE(Start(oProc, {}));
    const auto tGiveUp = tStart + std::chrono::seconds(120);
    while (oProc.Running() && std::chrono::steady_clock::now() < tGiveUp) {
      oPer.iMostAtWork = std::max(oPer.iMostAtWork, ConversionsAtWork(oProc.Pid()));
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    ASSERT_TRUE(oProc.WaitEnd(1000)) << "a whole run with " << iCount << " at once did not end";
    oPer.iRunMs = static_cast<int>(
        std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - tStart).count());
    ASSERT_EQ(oProc.ExitCode(), 0) << ReadFile("out.txt");
    WaitForOrphanedCopiers();
    CheckAllDone();
    for (const auto& [sKind, sDetail] : m_aProblems)
      ADD_FAILURE() << "uninterrupted run with " << iCount << " at once: " << sKind << ": " << sDetail;
    ASSERT_TRUE(m_aProblems.empty()) << "an uninterrupted run must finish the job";
    EXPECT_EQ(oPer.iMostAtWork, iCount) << "conversions seen at work at once in a whole run";
  }

  // One trial from a fresh tree: a kill at a random moment of a run, the checks, the next
  // run and its checks. The problems are told once per trial and tallied by kind.
  void Trial(int iTrial, int iCount, PerCount& oPer, std::mt19937& oRandom, std::map<std::string, int>& aTally) {
    ++oPer.iTrials;
    RemoveTrees();
    BuildTree(iCount);
    m_aProblems.clear();

    RunningProgram oProc;
    ASSERT_TRUE(Start(oProc, {}));
    std::uniform_int_distribution<int> oDelay(0, oPer.iRunMs);
    const int iDelay = oDelay(oRandom);
    std::this_thread::sleep_for(std::chrono::milliseconds(iDelay));
    if (oProc.Running()) {
      ++oPer.iKilledInRun;
      ++oPer.aAtKill[ConversionsAtWork(oProc.Pid())];
    }
    oProc.Signal(SIGKILL);
    ASSERT_TRUE(oProc.WaitEnd(10000));
    WaitForOrphanedCopiers();
    CheckNothingLost();

    const auto oNext = RunProcessor({}, {});
    if (!oNext) Problem("the next run failed", oNext.message());
    WaitForOrphanedCopiers();
    CheckAllDone();

    std::map<std::string, std::string> aKinds;  // first detail of each kind in this trial
    for (const auto& [sKind, sDetail] : m_aProblems) aKinds.emplace(sKind, sDetail);
    if (aKinds.empty()) return;
    ++oPer.iFailed;
    std::string sText;
    for (const auto& [sKind, sDetail] : aKinds) {
      ++aTally[fmt::format("{} at once: {}", iCount, sKind)];
      sText += "\n  " + sKind + ": " + sDetail;
    }
    ADD_FAILURE() << "trial " << iTrial << " (" << iCount << " at once, killed after " << iDelay << " ms):" << sText;
  }

  std::vector<Segment> m_aSegments;
  std::vector<std::pair<std::string, std::string>> m_aInfs;      // and the point the run marks
  std::vector<std::pair<std::string, std::string>> m_aKept;      // path and bytes
  std::vector<std::pair<std::string, std::string>> m_aProblems;  // kind and detail
};

TEST_F(ProcessKillTest, KilledAtRandomMomentsNothingIsLostAndTheNextRunFinishes) {
  const int iTrials = std::getenv("KN_KILL_TRIALS") ? std::atoi(std::getenv("KN_KILL_TRIALS")) : 200;
  const unsigned uSeed = std::getenv("KN_KILL_SEED")
                             ? static_cast<unsigned>(std::strtoul(std::getenv("KN_KILL_SEED"), nullptr, 10))
                             : std::random_device{}();
  std::printf("kill trials: seed %u (KN_KILL_SEED=%u repeats them)\n", uSeed, uSeed);
  std::fflush(stdout);
  std::mt19937 oRandom(uSeed);

  // The trials take turns over these counts of conversions at once.
  const std::vector<int> aCounts = {2, 4};
  std::map<int, PerCount> aPer;
  for (const int iCount : aCounts) {
    WholeRun(iCount, aPer[iCount]);
    if (HasFatalFailure()) return;
  }

  std::map<std::string, int> aTally;
  for (int iTrial = 1; iTrial <= iTrials; ++iTrial) {
    const int iCount = aCounts[static_cast<size_t>(iTrial - 1) % aCounts.size()];
    Trial(iTrial, iCount, aPer[iCount], oRandom, aTally);
    if (HasFatalFailure()) return;
    if (iTrial % 10 == 0) {
      std::printf("kill trials: %d run", iTrial);
      for (const auto& [iC, o] : aPer)
        std::printf(", %d at once: %d killed while running, %d failed", iC, o.iKilledInRun, o.iFailed);
      std::printf("\n");
      std::fflush(stdout);
    }
  }
  std::printf("kill trials: seed %u, %d trials\n", uSeed, iTrials);
  int iKilledInRun = 0;
  for (const auto& [iCount, o] : aPer) {
    std::string sAtKill;
    for (const auto& [iAtWork, iN] : o.aAtKill) sAtKill += fmt::format(" {}:{}", iAtWork, iN);
    std::printf(
        "  %d at once: %d trials, %d killed while running, %d failed; whole run %d ms with at most %d at work; "
        "at work at the kills (count:trials):%s\n",
        iCount, o.iTrials, o.iKilledInRun, o.iFailed, o.iRunMs, o.iMostAtWork, sAtKill.c_str());
    iKilledInRun += o.iKilledInRun;
  }
  // Most kills must have hit a running program, or the trials prove little.
  EXPECT_GT(iKilledInRun, iTrials / 2);
  for (const auto& [sKind, iCount] : aTally) std::printf("  %3d trials: %s\n", iCount, sKind.c_str());
}
