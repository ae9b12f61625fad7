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
  int iLog;
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
    for (int i = 0; i < 3; ++i) {
      m_aSegments.push_back({1, In(1, "20261122/1300/"), "13" + fmt2(i) + "00A", "wav", "adpcm_ima_wav"});
      m_aSegments.push_back({1, In(1, "20261122/1400/"), "14" + fmt2(i) + "00A", "wav", "adpcm_ima_wav"});
      m_aSegments.push_back({2, In(2, "20261115/0900/"), "09" + fmt2(i) + "00A", "mp2", "mp2"});
    }
    for (int i = 0; i < 4; ++i)
      m_aSegments.push_back({3, In(3, "20261122/1300/"), "13" + fmt2(i) + "00A", "wav", "adpcm_ima_wav"});
    m_aInfs = {In(1, "20261122/1300/130000.inf"), In(1, "20261122/1400/140000.inf"),
               In(2, "20261115/0900/090000.inf"), In(3, "20261122/1300/130000.inf")};
  }

  // Every segment is there, whole, in its source format or its target format.
  void CheckNothingLost(int iTrial) {
    for (const Segment& s : m_aSegments) {
      const std::string sWav = s.sFolder + s.sTitle + ".wav";
      const std::string sTarget = s.sFolder + s.sTitle + "." + s.sTarget;
      bool bFound = false;
      if (fs::exists(sWav)) {
        const auto p = proctest::Decode(sWav);
        if (p.sCodec == "pcm_s16le" || p.sCodec == s.sCodec) {
          EXPECT_NEAR(p.dSeconds, kSeconds, 0.05) << "trial " << iTrial << " " << sWav;
          bFound = true;
        } else {
          ADD_FAILURE() << "trial " << iTrial << ": " << sWav << " reads as '" << p.sCodec << "'";
        }
      }
      if (!bFound && s.sTarget != "wav" && fs::exists(sTarget)) {
        const auto p = proctest::Decode(sTarget);
        EXPECT_EQ(p.sCodec, s.sCodec) << "trial " << iTrial << " " << sTarget;
        EXPECT_NEAR(p.dSeconds, kSeconds, 0.15) << "trial " << iTrial << " " << sTarget;
        bFound = true;
      }
      // Between the delete of the source and the rename, the converted file alone
      // holds the audio under its temporary name; the next run gives it its name.
      for (const char* sPrefix : {"std", "arc"}) {
        const std::string sTemp = s.sFolder + sPrefix + s.sTitle + "." + s.sTarget;
        if (!bFound && fs::exists(sTemp)) {
          const auto p = proctest::Decode(sTemp);
          EXPECT_EQ(p.sCodec, s.sCodec) << "trial " << iTrial << " " << sTemp;
          EXPECT_NEAR(p.dSeconds, kSeconds, 0.15) << "trial " << iTrial << " " << sTemp;
          bFound = true;
        }
      }
      EXPECT_TRUE(bFound) << "trial " << iTrial << ": segment " << s.sFolder << s.sTitle << " is gone";
    }
    for (const std::string& sInf : m_aInfs) {
      EXPECT_EQ(IniValue(sInf, "Version"), "4.0") << "trial " << iTrial << " " << sInf;
      EXPECT_EQ(IniValue(sInf, "NumSegs"), "60") << "trial " << iTrial << " " << sInf;
      EXPECT_EQ(IniValue(sInf, "DeleteAudioAt"), kLater) << "trial " << iTrial << " " << sInf;
    }
  }

  void CheckAllDone(int iTrial) {
    for (const Segment& s : m_aSegments) {
      const std::string sTarget = s.sFolder + s.sTitle + "." + s.sTarget;
      const auto p = proctest::Decode(sTarget);
      EXPECT_EQ(p.sCodec, s.sCodec) << "trial " << iTrial << " " << sTarget;
      EXPECT_NEAR(p.dSeconds, kSeconds, 0.15) << "trial " << iTrial << " " << sTarget;
      EXPECT_FALSE(fs::exists(s.sFolder + "std" + s.sTitle + "." + s.sTarget)) << "trial " << iTrial;
      EXPECT_FALSE(fs::exists(s.sFolder + "arc" + s.sTitle + "." + s.sTarget)) << "trial " << iTrial;
      if (s.sTarget != "wav") {
        EXPECT_FALSE(fs::exists(s.sFolder + s.sTitle + ".wav")) << "trial " << iTrial;
      }
    }
    EXPECT_EQ(IniValue(m_aInfs[0], "StandardAudioAt"), "-1") << "trial " << iTrial;
    EXPECT_EQ(IniValue(m_aInfs[1], "StandardAudioAt"), "-1") << "trial " << iTrial;
    EXPECT_EQ(IniValue(m_aInfs[2], "ArchiveAudioAt"), "-1") << "trial " << iTrial;
    EXPECT_EQ(IniValue(m_aInfs[3], "StandardAudioAt"), "-1") << "trial " << iTrial;
  }

  void WaitForOrphanedCopiers() {
    const std::string sCopier = PathIn("drive_c/Program Files/Common Files/Norvane Shared/Sound Shuttle/SoundShuttle");
    WaitFor([&] { return !ProgramRuns(sCopier); }, 30000);
  }

  std::vector<Segment> m_aSegments;
  std::vector<std::string> m_aInfs;
};

TEST_F(ProcessKillTest, KilledAtRandomMomentsNothingIsLostAndTheNextRunFinishes) {
  const int iTrials = std::getenv("KN_KILL_TRIALS") ? std::atoi(std::getenv("KN_KILL_TRIALS")) : 50;
  std::mt19937 oRandom(20261123);
  // How long a whole run takes here, to spread the kills over it.
  BuildTree();
  const auto tStart = std::chrono::steady_clock::now();
  ASSERT_TRUE(RunProcessor({})) << proctest::ReadBytes(PathIn("out.txt"));
  const int iRunMs = static_cast<int>(
      std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - tStart).count());
  CheckAllDone(0);

  int iKilledInRun = 0;
  for (int iTrial = 1; iTrial <= iTrials && !HasFailure(); ++iTrial) {
    std::error_code ec;
    for (int i = 1; i <= 3; ++i) fs::remove_all(LogDir(i), ec);
    m_aSegments.clear();
    m_sLoggers.clear();
    BuildTree();

    RunningProgram oProc;
    ASSERT_TRUE(oProc.Start(m_sProgram, {}, PathIn("out.txt"), {"KESTRANE_CLOCK_START=2026-11-23 10:05:00"}));
    std::uniform_int_distribution<int> oDelay(0, iRunMs);
    std::this_thread::sleep_for(std::chrono::milliseconds(oDelay(oRandom)));
    if (oProc.Running()) ++iKilledInRun;
    oProc.Signal(SIGKILL);
    ASSERT_TRUE(oProc.WaitEnd(10000));
    WaitForOrphanedCopiers();
    CheckNothingLost(iTrial);

    ASSERT_TRUE(RunProcessor({})) << "trial " << iTrial << ": " << proctest::ReadBytes(PathIn("out.txt"));
    WaitForOrphanedCopiers();
    CheckAllDone(iTrial);
  }
  // Most kills must have hit a running program, or the trial proves little.
  EXPECT_GT(iKilledInRun, iTrials / 2) << "run takes " << iRunMs << " ms";
  std::printf("%d trials, %d killed while running, whole run %d ms\n", iTrials, iKilledInRun, iRunMs);
}
