// The processor killed (SIGKILL) at random moments of a run over several loggers: no
// segment is ever lost or damaged, no hour info file is damaged, and a run that follows
// finishes the job.
#include <gtest/gtest.h>

#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "ProcessRun.h"

using namespace e2eproc;
using proctest::IniValue;

namespace {

constexpr const char* kPast = "2026-11-22 14:00";
constexpr const char* kLater = "2026-12-30 00:00";
constexpr double kSeconds = 3.0;

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

struct Segment {
  std::string sFolder;  // hour folder with "/"
  std::string sTitle;   // e.g. "130000A"
  std::string sTarget;  // the target's extension
  std::string sCodec;   // the target's codec as ffprobe names it
};

}  // namespace

class ProcessKillTest : public ProcessRunTest {
 protected:
  void BuildTree() {
    AddLogger(1, true, {Periods(Wav(44100, 2, 1), Wav(22050, 2, 17), Wav(22050, 1, 17))});
    AddLogger(2, true, {Periods(Wav(44100, 2, 1), Wav(44100, 2, 1), Compressed(FormatMP2, 44100, 128, 2))});
    AddLogger(3, true, {Periods(Wav(44100, 2, 1), Wav(22050, 1, 17), Wav(22050, 1, 17))});
    WriteRegistry();
    AddHour(1, "20261122", "13", kPast, kLater, kLater, 3, kSeconds);
    AddHour(1, "20261122", "14", kPast, kLater, kLater, 3, kSeconds);
    AddHour(2, "20261115", "09", "-1", kPast, kLater, 3, kSeconds);
    AddHour(3, "20261122", "13", kPast, kLater, kLater, 4, kSeconds);
    for (int i = 0; i < 4; ++i) {
      const std::string sMinute = fmt::format("{:02}00A", i);
      if (i < 3) {
        m_aSegments.push_back({In(1, "20261122/1300/"), "13" + sMinute, "wav", "adpcm_ima_wav"});
        m_aSegments.push_back({In(1, "20261122/1400/"), "14" + sMinute, "wav", "adpcm_ima_wav"});
        m_aSegments.push_back({In(2, "20261115/0900/"), "09" + sMinute, "mp2", "mp2"});
      }
      m_aSegments.push_back({In(3, "20261122/1300/"), "13" + sMinute, "wav", "adpcm_ima_wav"});
    }
    m_aInfs = {{In(1, "20261122/1300/130000.inf"), "StandardAudioAt"},
               {In(1, "20261122/1400/140000.inf"), "StandardAudioAt"},
               {In(2, "20261115/0900/090000.inf"), "ArchiveAudioAt"},
               {In(3, "20261122/1300/130000.inf"), "StandardAudioAt"}};
  }

  // Every segment is there, whole, in its source format or its target format: under its
  // own name or, between the delete of the source and the rename, under the converted
  // file's temporary name (the next run gives it its name).
  void CheckNothingLost() {
    for (const Segment& s : m_aSegments) {
      std::vector<std::string> aNames = {s.sFolder + s.sTitle + ".wav"};
      if (s.sTarget != "wav") aNames.push_back(s.sFolder + s.sTitle + "." + s.sTarget);
      for (const char* sPrefix : {"std", "arc"}) aNames.push_back(s.sFolder + sPrefix + s.sTitle + "." + s.sTarget);
      const auto it = std::find_if(aNames.begin(), aNames.end(), [](const std::string& n) { return fs::exists(n); });
      if (it == aNames.end()) {
        ADD_FAILURE() << "segment " << s.sFolder << s.sTitle << " is gone";
        continue;
      }
      const bool bWav = it == aNames.begin();
      const auto p = proctest::Decode(*it);
      EXPECT_TRUE(p.sCodec == s.sCodec || (bWav && p.sCodec == "pcm_s16le"))
          << *it << " reads as '" << p.sCodec << "'";
      EXPECT_NEAR(p.dSeconds, kSeconds, bWav ? 0.05 : 0.15) << *it;
    }
    for (const auto& [sInf, sKey] : m_aInfs) {
      EXPECT_EQ(IniValue(sInf, "Version"), "4.0") << sInf;
      EXPECT_EQ(IniValue(sInf, "NumSegs"), "60") << sInf;
      EXPECT_EQ(IniValue(sInf, "DeleteAudioAt"), kLater) << sInf;
    }
  }

  void CheckAllDone() {
    for (const Segment& s : m_aSegments) {
      const std::string sTarget = s.sFolder + s.sTitle + "." + s.sTarget;
      proctest::ExpectAudio(sTarget, s.sCodec, kSeconds, 0.15);
      for (const char* sPrefix : {"std", "arc"})
        EXPECT_FALSE(fs::exists(s.sFolder + sPrefix + s.sTitle + "." + s.sTarget));
      if (s.sTarget != "wav") {
        EXPECT_FALSE(fs::exists(s.sFolder + s.sTitle + ".wav"));
      }
    }
    for (const auto& [sInf, sKey] : m_aInfs) EXPECT_EQ(IniValue(sInf, sKey), "-1") << sInf;
  }

  void WaitForOrphanedCopiers() {
    const std::string sCopier = PathIn("drive_c/Program Files/Common Files/Norvane Shared/Sound Shuttle/SoundShuttle");
    WaitFor([&] { return !ProgramRuns(sCopier); }, 30000);
  }

  std::vector<Segment> m_aSegments;
  std::vector<std::pair<std::string, std::string>> m_aInfs;  // and the point the run marks
};

TEST_F(ProcessKillTest, KilledAtRandomMomentsNothingIsLostAndTheNextRunFinishes) {
  const int iTrials = std::getenv("KN_KILL_TRIALS") ? std::atoi(std::getenv("KN_KILL_TRIALS")) : 50;
  std::mt19937 oRandom(20261123);
  // How long a whole run takes here, to spread the kills over it.
  BuildTree();
  const auto tStart = std::chrono::steady_clock::now();
  ASSERT_TRUE(RunProcessor({}, {}));
  const int iRunMs = static_cast<int>(
      std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - tStart).count());
  CheckAllDone();

  int iKilledInRun = 0;
  for (int iTrial = 1; iTrial <= iTrials && !HasFailure(); ++iTrial) {
    SCOPED_TRACE("trial " + std::to_string(iTrial));
    std::error_code ec;
    for (int i = 1; i <= 3; ++i) fs::remove_all(LogDir(i), ec);
    m_aSegments.clear();
    m_sLoggers.clear();
    BuildTree();

    RunningProgram oProc;
    ASSERT_TRUE(Start(oProc, {}));
    std::uniform_int_distribution<int> oDelay(0, iRunMs);
    std::this_thread::sleep_for(std::chrono::milliseconds(oDelay(oRandom)));
    if (oProc.Running()) ++iKilledInRun;
    oProc.Signal(SIGKILL);
    ASSERT_TRUE(oProc.WaitEnd(10000));
    WaitForOrphanedCopiers();
    CheckNothingLost();

    ASSERT_TRUE(RunProcessor({}, {}));
    WaitForOrphanedCopiers();
    CheckAllDone();
  }
  // Most kills must have hit a running program, or the trial proves little.
  EXPECT_GT(iKilledInRun, iTrials / 2) << "run takes " << iRunMs << " ms";
  std::printf("%d trials, %d killed while running, whole run %d ms\n", iTrials, iKilledInRun, iRunMs);
}
