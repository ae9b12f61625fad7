// The processor while the external copier runs: it still answers and stops, a copier that
// hangs is ended by "CopierTimeout", and the copier gets its paths whatever they hold.
// A stand-in copier (a script in the copier's place) records its arguments, leaves a
// temporary file as the real one does while it works, and then hangs.
#include <gtest/gtest.h>

#include <signal.h>
#include <sys/wait.h>

#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "ProcessRun.h"

using namespace e2eproc;
using proctest::IniValue;

namespace {

class CopierTest : public ProcessRunTest {
 protected:
  // Logger 1, archived to MP2 through the copier, in a folder whose name holds quotes and
  // blanks; one hour due for archive. sHang is the end of the stand-in copier's script.
  void SetUpLogger(const std::string& sHang, int iTimeoutSecs = 0) {
    AddLogger(1, true, {Periods(Wav(44100, 2, 1), Wav(44100, 2, 1), Compressed(FormatMP2, 44100, 128, 2))});
    AddHour(1, "20261115", "09", "-1", kPast, kLater, 1, 1.0);
    m_sLogDir = PathIn("drive_d/Log \"q\" 1");
    fs::rename(LogDir(1), m_sLogDir);
    const std::string sOld = "\"D:\\\\Logger1\"";
    m_sLoggers.replace(m_sLoggers.find(sOld), sOld.size(), "\"D:\\\\Log \\\"q\\\" 1\"");
    WriteRegistry();
    if (iTimeoutSecs > 0)
      WriteFile("registry.reg",
                ReadFile("registry.reg") + fmt::format("\"CopierTimeout\"=dword:{:08x}\r\n", iTimeoutSecs));
    m_sHour = m_sLogDir + "/20261115/0900/";
    m_sSource = ReadBytes(m_sHour + "090000A.wav");

    const std::string sCopier = PathIn("drive_c/Program Files/Common Files/Norvane Shared/Sound Shuttle/SoundShuttle");
    fs::remove(sCopier);
    WriteFile("drive_c/Program Files/Common Files/Norvane Shared/Sound Shuttle/SoundShuttle",
              "#!/bin/sh\n"
              // A copier that converts one file a run refuses to serve file after file.
              "[ \"$1\" = /SERVE ] && exit 2\n"
              "out='" +
                  PathIn("copier-args") +
                  "'\n"
                  "for a in \"$@\"; do printf '%s\\0' \"$a\"; done > \"$out.tmp\"\n"
                  "dst=''\n"
                  "for a in \"$@\"; do case \"$a\" in /DSTFILE=*) dst=\"${a#/DSTFILE=}\";; esac; done\n"
                  ": > \"$(dirname \"$dst\")/.$(basename \"$dst\").shuttle-Ab12Cd\"\n"
                  "mv \"$out.tmp\" \"$out\"\n" +
                  sHang + "\n");
    fs::permissions(sCopier, fs::perms::owner_all | fs::perms::group_read | fs::perms::group_exec);
  }
  std::vector<std::string> CopierArgs() const {
    const std::string s = ReadFile("copier-args");
    std::vector<std::string> a;
    for (size_t i = 0, j; (j = s.find('\0', i)) != std::string::npos; i = j + 1) a.push_back(s.substr(i, j - i));
    return a;
  }
  std::set<std::string> HourFiles() const {
    std::set<std::string> a;
    for (const auto& e : fs::directory_iterator(m_sHour)) a.insert(e.path().filename().string());
    return a;
  }
  // The source untouched, nothing else left in its hour, the archive point still due.
  void ExpectHourAsBefore() const {
    EXPECT_EQ(ReadBytes(m_sHour + "090000A.wav"), m_sSource);
    EXPECT_EQ(HourFiles(), (std::set<std::string>{"090000.inf", "090000A.wav"}));
    EXPECT_EQ(IniValue(m_sHour + "090000.inf", "ArchiveAudioAt"), kPast);
  }

  std::string m_sLogDir, m_sHour, m_sSource;
};

}  // namespace

TEST_F(CopierTest, WhileTheCopierRunsRespondIsAnsweredAndSigtermEndsItKeepingTheSource) {
  SetUpLogger("sleep 60");
  RunningProgram oProc;
  ASSERT_TRUE(Start(oProc, {"/DEBUG"}));
  ASSERT_TRUE(WaitFor([&] { return fs::exists(PathIn("copier-args")); }, 60000)) << ReadFile("out.txt");

  // Paths with quotes and blanks arrive as they are, one argument each.
  const std::vector<std::string> aArgs = CopierArgs();
  ASSERT_EQ(aArgs.size(), 4u);
  EXPECT_EQ(aArgs[0], "/SRCFILE=" + m_sHour + "090000A.wav");
  EXPECT_EQ(aArgs[1], "/DSTFILE=" + m_sHour + "arc090000A.mp2");
  EXPECT_EQ(aArgs[2].rfind("/DSTFORMAT=", 0), 0u);
  EXPECT_EQ(aArgs[3], "/PRXFILE=" + PathIn("drive_c/Program Files/Common Files/Norvane Shared/Kestrane v4/nvkn4.prx"));

  ASSERT_TRUE(MessageTransport::Send("KNLogProcMsgHandler", "RESPOND"));
  EXPECT_TRUE(WaitFor(
      [&] {
        while (auto m = m_oCapture.Receive()) m_aHeard.push_back(m->Text);
        return std::any_of(m_aHeard.begin(), m_aHeard.end(),
                           [](const std::string& s) { return s.rfind("RESPONSE", 0) == 0; });
      },
      2000));
  oProc.Signal(SIGTERM);
  ASSERT_TRUE(oProc.WaitEnd(2000)) << "SIGTERM not obeyed while the copier ran";
  EXPECT_TRUE(WIFEXITED(oProc.Status()));
  ExpectHourAsBefore();
  EXPECT_TRUE(Heard("IDLE"));
}

TEST_F(CopierTest, AHangingCopierIsEndedByCopierTimeoutAndTheFileRejected) {
  // It ignores SIGTERM too: SIGKILL ends it.
  SetUpLogger("trap '' TERM\nsleep 60", 1);
  ASSERT_TRUE(RunProcessor());
  ExpectHourAsBefore();
  const std::string sLog = ReadBytes(m_sLogDir + "/20261123/1000/100000.LOG");
  EXPECT_NE(sLog.find("Copier timed out after 1 seconds, file rejected: 090000A.wav"), std::string::npos) << sLog;
  EXPECT_TRUE(Heard("FileArchiveError:" + m_sHour + "090000A.wav"));
  EXPECT_NE(ReadFile("out.txt").find("<3>knlogproc: the copier took longer than 1 s"), std::string::npos)
      << ReadFile("out.txt");
}
