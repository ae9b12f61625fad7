// The copier that stays up between files: a file through it ends as a run of its own would
// (its status, a stop, CopierTimeout), the processor converting several files at once
// starts no more copiers than it has workers, and a copier that can't serve still
// converts every file, one run a file.
#include <gtest/gtest.h>

#include <signal.h>

#include <chrono>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "ProcessRun.h"
#include "engine/CopierRun.h"
#include "engine/CopierServer.h"

using namespace e2eproc;
using proctest::Decode;
using proctest::IniValue;

namespace {

constexpr const char* kMp2 = "FormatType=32;SampleRate=44100;Channels=2;BitRate=128;BitsPerSample=16";

class CopierServerTest : public ProcessRunTest {
 protected:
  std::string CopierPath() const {
    return PathIn("drive_c/Program Files/Common Files/Norvane Shared/Sound Shuttle/SoundShuttle");
  }
  // The copier's place taken by a script that notes each start's first argument in
  // "copier-starts" and then runs sOnServe for /SERVE, the real copier otherwise.
  void WrapCopier(const std::string& sOnServe) {
    const std::string sCopier = CopierPath();
    fs::rename(sCopier, sCopier + ".real");
    WriteBytes(sCopier, "#!/bin/sh\nprintf '%s\\n' \"$1\" >> " + Quote(PathIn("copier-starts")) +
                            "\ncase \"$1\" in /SERVE) " + sOnServe + ";; esac\nexec " + Quote(sCopier + ".real") +
                            " \"$@\"\n");
    fs::permissions(sCopier, fs::perms::owner_all);
  }
  std::vector<std::string> Starts() const {
    std::istringstream ss(ReadFile("copier-starts"));
    std::vector<std::string> a;
    for (std::string s; std::getline(ss, s);) a.push_back(s);
    return a;
  }
  // Logger 1 archived to MP2 through the copier, iFiles segments of 2 s in hour 09.
  void SetUpMp2Hour(int iFiles, int iConcurrent) {
    AddLogger(1, true, {Periods(Wav(44100, 2, 1), Wav(44100, 2, 1), Compressed(FormatMP2, 44100, 128, 2))});
    AddHour(1, "20261115", "09", "-1", kPast, kLater, iFiles, 2.0);
    WriteRegistry(0, iConcurrent);
  }
  // Every segment replaced by MP2 holding every one of its samples.
  void ExpectHourConverted(int iFiles) {
    for (int i = 0; i < iFiles; ++i) {
      const std::string sName = fmt::format("20261115/0900/09{:02}00A", i);
      const audiocount::Counted c = audiocount::CountFrames(In(1, sName + ".mp2"));
      EXPECT_EQ(c.sCodec, "mp2") << sName;
      EXPECT_GE(c.lFrames, 88200) << sName;
      EXPECT_NEAR(c.Seconds(), 2.0, 0.06) << sName;
      EXPECT_FALSE(fs::exists(In(1, sName + ".wav"))) << sName;
    }
    EXPECT_EQ(IniValue(In(1, "20261115/0900/090000.inf"), "ArchiveAudioAt"), "-1");
  }
  static bool TempFileIn(const std::string& sFolder) {
    for (const auto& e : fs::directory_iterator(sFolder))
      if (e.path().filename().string().find(".shuttle-") != std::string::npos) return true;
    return false;
  }
};

}  // namespace

TEST_F(CopierServerTest, SeveralFilesAtOnceUseOneCopierAWorker) {
  SetUpMp2Hour(7, 2);
  WrapCopier("");
  ASSERT_TRUE(RunProcessor());
  ExpectHourConverted(7);
  const std::vector<std::string> aStarts = Starts();
  EXPECT_GE(aStarts.size(), 1u);
  EXPECT_LE(aStarts.size(), 2u);
  for (const std::string& s : aStarts) EXPECT_EQ(s, "/SERVE");
}

TEST_F(CopierServerTest, ACopierThatDoesNotServeConvertsFileByFile) {
  SetUpMp2Hour(6, 2);
  // It neither answers nor ends: ended after the wait for its hello, tried once a run.
  WrapCopier("exec sleep 30");
  ASSERT_TRUE(RunProcessor());
  ExpectHourConverted(6);
  const std::vector<std::string> aStarts = Starts();
  ASSERT_EQ(aStarts.size(), 7u);
  EXPECT_EQ(aStarts[0], "/SERVE");
  for (size_t i = 1; i < aStarts.size(); ++i) EXPECT_EQ(aStarts[i].rfind("/SRCFILE=", 0), 0u) << aStarts[i];
}

// The server alone, as a worker uses it.
TEST_F(CopierServerTest, AFileThroughTheServerEndsAsItsOwnRunWould) {
  const std::string sFolder = PathIn("files");
  fs::create_directories(sFolder);
  const std::string sSource = sFolder + "/a \"b\"\nc.wav", sTarget = sFolder + "/a \"b\"\nc.mp2";
  proctest::WriteToneWav(sSource, 2.0);
  auto oServer = CopierServer::Start(CopierPath());
  ASSERT_TRUE(oServer);
  const pid_t pid = oServer->Pid();
  int iPumps = 0;
  const auto fnPump = [&] { ++iPumps; };
  const auto fnNoStop = [] { return false; };

  // A file, then the same target again: the copier's own status 3, the file kept.
  auto oResult = oServer->Run(sSource, sTarget, kMp2, "", fnNoStop, fnPump);
  ASSERT_TRUE(oResult);
  EXPECT_EQ(oResult->eOutcome, AppGlobal::RunOutcome::Exited);
  EXPECT_EQ(oResult->lExitCode, 0);
  EXPECT_GE(audiocount::CountFrames(sTarget).lFrames, 88200);
  const std::string sMade = ReadBytes(sTarget);
  oResult = oServer->Run(sSource, sTarget, kMp2, "", fnNoStop, fnPump);
  ASSERT_TRUE(oResult);
  EXPECT_EQ(oResult->lExitCode, 3);
  EXPECT_EQ(ReadBytes(sTarget), sMade);
  EXPECT_EQ(oServer->Pid(), pid);

  // A stop while the copier writes: no target, no temporary file, the server gone.
  proctest::WriteToneWav(sFolder + "/long.wav", 60.0);
  oResult = oServer->Run(
      sFolder + "/long.wav", sFolder + "/long.mp2", kMp2, "", [&] { return TempFileIn(sFolder); }, fnPump);
  ASSERT_TRUE(oResult);
  EXPECT_EQ(oResult->eOutcome, AppGlobal::RunOutcome::Stopped);
  EXPECT_FALSE(fs::exists(sFolder + "/long.mp2"));
  EXPECT_FALSE(TempFileIn(sFolder));
  EXPECT_FALSE(oServer->Usable());
  EXPECT_NE(::kill(pid, 0), 0) << "the ended server was not reaped";
  EXPECT_GT(iPumps, 0) << "no pump while the copier worked";
  EXPECT_FALSE(oServer->Run(sSource, sFolder + "/x.mp2", kMp2, "", fnNoStop, fnPump));

  // One that hangs on a file, deaf to SIGTERM: ended by CopierTimeout.
  WriteBytes(PathIn("hangs"), "#!/bin/sh\necho 'SoundShuttle serve 1'\ntrap '' TERM\nexec sleep 60\n");
  fs::permissions(PathIn("hangs"), fs::perms::owner_all);
  WriteRegistry();
  WriteFile("registry.reg", ReadFile("registry.reg") + "\"CopierTimeout\"=dword:00000001\r\n");
  ConfigAccess::ClearCache();
  oServer = CopierServer::Start(PathIn("hangs"));
  ASSERT_TRUE(oServer);
  const auto tStart = std::chrono::steady_clock::now();
  oResult = oServer->Run(sSource, sFolder + "/late.mp2", kMp2, "", fnNoStop, fnPump);
  ASSERT_TRUE(oResult);
  EXPECT_EQ(oResult->eOutcome, AppGlobal::RunOutcome::TimedOut);
  EXPECT_GE(std::chrono::steady_clock::now() - tStart, std::chrono::seconds(1));
  EXPECT_FALSE(oServer->Usable());

  // A copier without /SERVE refuses the switch: no server, and at once.
  WriteBytes(PathIn("old"), "#!/bin/sh\necho \"SoundShuttle: unknown argument: $1\" >&2\nexit 2\n");
  fs::permissions(PathIn("old"), fs::perms::owner_all);
  const auto tOld = std::chrono::steady_clock::now();
  EXPECT_FALSE(CopierServer::Start(PathIn("old")));
  EXPECT_LT(std::chrono::steady_clock::now() - tOld, std::chrono::milliseconds(CopierServer::kHelloMs));
}
