// The processor started as a program: trace, second copies, stop signals, odd command
// lines and the crash switch.
#include <gtest/gtest.h>

#include <sys/wait.h>

#include <algorithm>
#include <filesystem>
#include <random>
#include <regex>
#include <string>
#include <vector>

#include "RunningProgram.h"
#include "common/TempRoot.h"

namespace fs = std::filesystem;

class StartupTest : public TempRootTest {
 protected:
  void SetUp() override {
    TempRootTest::SetUp();
    // A copy of the program of our own: tests running side by side would otherwise see
    // each other's processor as "a copy already running".
    fs::create_directories(PathIn("bin"));
    m_sProgram = PathIn("bin/knlogproc");
    fs::copy_file(BinPath("knlogproc"), m_sProgram);
  }

  // All debug files of the processor, in name order.
  std::string Trace() const {
    std::string sAll;
    std::vector<fs::path> aFiles;
    std::error_code ec;
    for (auto& e : fs::directory_iterator(PathIn("drive_c/DebugFiles"), ec))
      if (e.path().filename().string().rfind("knlogproc.", 0) == 0) aFiles.push_back(e.path());
    std::sort(aFiles.begin(), aFiles.end());
    for (auto& p : aFiles) sAll += ReadText(p.string());
    return sAll;
  }
  bool WaitForTrace(const std::string& sText, int iMs = 20000) const {
    return WaitFor([&] { return Trace().find(sText) != std::string::npos; }, iMs);
  }
  bool WaitForHandler(int iMs = 20000) const {
    return WaitFor([&] { return fs::exists(fs::symlink_status(PathIn("run/msg/KNLogProcMsgHandler"))); },
                   iMs);
  }
  std::string Output(const std::string& sName) const { return ReadText(PathIn(sName)); }
  void WriteRegistry(const std::string& sBody) {
    WriteFile("registry.reg", "Windows Registry Editor Version 5.00\r\n\r\n" + sBody);
  }

  std::string m_sProgram;
};

TEST_F(StartupTest, DebugRunTracesWaitsForLoggersAndStopsOnSigterm) {
  RunningProgram oProc;
  ASSERT_TRUE(oProc.Start(m_sProgram, {"/DEBUG"}, PathIn("out.txt")));
  ASSERT_TRUE(WaitForTrace("No Logs Found: Reset wait timer")) << Trace();

  const std::string sTrace = Trace();
  std::vector<std::string> aLines;
  std::istringstream ss(sTrace);
  for (std::string s; std::getline(ss, s);) aLines.push_back(s);
  ASSERT_GE(aLines.size(), 3u);
  EXPECT_TRUE(std::regex_match(aLines[0], std::regex(R"(\d\d:\d\d:\d\d Start Sub Main\r)"))) << aLines[0];
  EXPECT_TRUE(std::regex_match(aLines[1], std::regex(R"(\d\d:\d\d:\d\d     DebugMode = 5\r)"))) << aLines[1];
  EXPECT_NE(sTrace.find("     sLogListLoc = SOFTWARE\\Norvane\\Kestrane v4\\Capture\r\n"), std::string::npos);
  EXPECT_NE(sTrace.find(" End Sub Main\r\n"), std::string::npos);
  // The debug file carries the date of the day in its name.
  bool bNamed = false;
  for (auto& e : fs::directory_iterator(PathIn("drive_c/DebugFiles")))
    bNamed |= std::regex_match(e.path().filename().string(), std::regex(R"(knlogproc\.\d{8}\.log)"));
  EXPECT_TRUE(bNamed);

  // It goes on waiting: no logger ever ends the program by itself.
  std::this_thread::sleep_for(std::chrono::milliseconds(1500));
  ASSERT_TRUE(oProc.Running());

  oProc.Signal(SIGTERM);
  // The wait timer ticks once a second; the stop comes at its next tick.
  ASSERT_TRUE(oProc.WaitEnd(5000));
  ASSERT_TRUE(WIFEXITED(oProc.Status()));
  EXPECT_EQ(WEXITSTATUS(oProc.Status()), 0) << Output("out.txt");
  const std::string sEnd = Trace();
  EXPECT_NE(sEnd.find("Shutdown Message Received"), std::string::npos);
  EXPECT_NE(sEnd.find(" End frmProcessLogs_Unload\r\n"), std::string::npos);
  EXPECT_NE(sEnd.find("Clear Exception Filter"), std::string::npos);
  EXPECT_FALSE(fs::exists(fs::symlink_status(PathIn("run/msg/KNLogProcMsgHandler"))));
}

TEST_F(StartupTest, SigintAndSighupStopItToo) {
  for (int iSignal : {SIGINT, SIGHUP}) {
    RunningProgram oProc;
    ASSERT_TRUE(oProc.Start(m_sProgram, {}, PathIn("out.txt")));
    ASSERT_TRUE(WaitForHandler());
    oProc.Signal(iSignal);
    ASSERT_TRUE(oProc.WaitEnd(5000)) << iSignal;
    ASSERT_TRUE(WIFEXITED(oProc.Status())) << iSignal;
    EXPECT_EQ(WEXITSTATUS(oProc.Status()), 0);
  }
}

// With a platform named, the program runs as a windowed application; the engine and its
// stop are the same.
TEST_F(StartupTest, RunsTheSameWithAWindowPlatform) {
  RunningProgram oProc;
  ASSERT_TRUE(oProc.Start(m_sProgram, {"/DEBUG"}, PathIn("out.txt"), {"QT_QPA_PLATFORM=offscreen"}));
  ASSERT_TRUE(WaitForTrace("No Logs Found: Reset wait timer")) << Output("out.txt");
  oProc.Signal(SIGTERM);
  ASSERT_TRUE(oProc.WaitEnd(5000));
  ASSERT_TRUE(WIFEXITED(oProc.Status())) << Output("out.txt");
  EXPECT_EQ(WEXITSTATUS(oProc.Status()), 0) << Output("out.txt");
  EXPECT_NE(Trace().find("End frmProcessLogs_Unload"), std::string::npos);
}

TEST_F(StartupTest, SecondCopyEndsAtOnceAndLeavesTheFirstAlone) {
  RunningProgram oFirst;
  ASSERT_TRUE(oFirst.Start(m_sProgram, {"/DEBUG"}, PathIn("first.txt")));
  ASSERT_TRUE(WaitForTrace("No Logs Found: Reset wait timer"));

  RunningProgram oSecond;
  ASSERT_TRUE(oSecond.Start(m_sProgram, {"/debug"}, PathIn("second.txt")));
  ASSERT_TRUE(oSecond.WaitEnd(20000));
  EXPECT_TRUE(WIFEXITED(oSecond.Status()));
  EXPECT_NE(Output("second.txt").find("There is already a copy of the Log Processor running!"),
            std::string::npos)
      << Output("second.txt");
  EXPECT_NE(Trace().find("LogProc is running.  Warn user and exit"), std::string::npos);

  RunningProgram oSilent;
  ASSERT_TRUE(oSilent.Start(m_sProgram, {"/SILENT"}, PathIn("silent.txt")));
  ASSERT_TRUE(oSilent.WaitEnd(20000));
  EXPECT_TRUE(WIFEXITED(oSilent.Status()));
  EXPECT_EQ(Output("silent.txt"), "");

  // The first one runs on and still owns its message handler.
  EXPECT_TRUE(oFirst.Running());
  EXPECT_TRUE(fs::exists(fs::symlink_status(PathIn("run/msg/KNLogProcMsgHandler"))));
  oFirst.Signal(SIGTERM);
  ASSERT_TRUE(oFirst.WaitEnd(5000));
  EXPECT_EQ(Output("first.txt"), "");
}

TEST_F(StartupTest, ACopyInAnotherFolderIsNotASecondCopy) {
  RunningProgram oFirst;
  ASSERT_TRUE(oFirst.Start(m_sProgram, {}, PathIn("first.txt")));
  ASSERT_TRUE(WaitForHandler());
  fs::create_directories(PathIn("other"));
  fs::copy_file(m_sProgram, PathIn("other/knlogproc"));
  RunningProgram oOther;
  ASSERT_TRUE(oOther.Start(PathIn("other/knlogproc"), {"/DEBUG"}, PathIn("other.txt")));
  // It runs its own cycle (without a message handler, which the first one holds).
  ASSERT_TRUE(WaitForTrace("No Logs Found: Reset wait timer"));
  EXPECT_EQ(Trace().find("LogProc is running."), std::string::npos);
  EXPECT_TRUE(oOther.Running());
  oOther.Signal(SIGTERM);
  oFirst.Signal(SIGTERM);
  EXPECT_TRUE(oOther.WaitEnd(5000));
  EXPECT_TRUE(oFirst.WaitEnd(5000));
}

TEST_F(StartupTest, LoggerListLocationComesFromTheEndOfTheCommandLine) {
  RunningProgram oProc;
  ASSERT_TRUE(oProc.Start(m_sProgram, {"/KEEPALIVE", "/DEBUGFULL", "\\\\RECORDER1\\SOFTWARE\\Test", "Loggers"},
                          PathIn("out.txt")));
  ASSERT_TRUE(WaitForTrace("No Logs Found: Reset wait timer"));
  const std::string sTrace = Trace();
  EXPECT_NE(sTrace.find("DebugMode = 10\r\n"), std::string::npos);
  EXPECT_NE(sTrace.find("sLogListLoc = SOFTWARE\\Test Loggers\r\n"), std::string::npos) << sTrace;
  oProc.Signal(SIGTERM);
  EXPECT_TRUE(oProc.WaitEnd(5000));
}

TEST_F(StartupTest, CrashFilterCanBeSwitchedOffInTheRegistry) {
  WriteRegistry(
      "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Norvane\\Kestrane v4\\Log Processor]\r\n"
      "\"UseExceptionHandler\"=dword:00000000\r\n");
  RunningProgram oProc;
  ASSERT_TRUE(oProc.Start(m_sProgram, {"/DEBUG"}, PathIn("out.txt")));
  ASSERT_TRUE(WaitForTrace("No Logs Found: Reset wait timer"));
  oProc.Signal(SIGTERM);
  ASSERT_TRUE(oProc.WaitEnd(5000));
  const std::string sTrace = Trace();
  EXPECT_NE(sTrace.find("End frmProcessLogs_Unload"), std::string::npos);
  EXPECT_EQ(sTrace.find("Clear Exception Filter"), std::string::npos);
}

TEST_F(StartupTest, CrashSwitchEndsTheProgramThroughTheFilter) {
  RunningProgram oProc;
  ASSERT_TRUE(oProc.Start(m_sProgram, {"/DEBUG", "/CRASH"}, PathIn("out.txt")));
  ASSERT_TRUE(oProc.WaitEnd(20000));
  ASSERT_TRUE(WIFSIGNALED(oProc.Status())) << Output("out.txt");
  EXPECT_EQ(WTERMSIG(oProc.Status()), SIGFPE);
  const std::string sTrace = Trace();
  EXPECT_NE(sTrace.find("Load frmProcessLogs"), std::string::npos);
  EXPECT_NE(sTrace.find(" CRITICAL ERROR: Divide By Zero\r\n"), std::string::npos) << sTrace;
  EXPECT_NE(Output("out.txt").find("Run-time error '10000': Divide By Zero"), std::string::npos);
}

TEST_F(StartupTest, CrashSwitchWithoutTheFilterStillEndsTheProgram) {
  WriteRegistry(
      "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Norvane\\Kestrane v4\\Log Processor]\r\n"
      "\"UseExceptionHandler\"=dword:00000000\r\n");
  RunningProgram oProc;
  ASSERT_TRUE(oProc.Start(m_sProgram, {"/DEBUG", "/crash"}, PathIn("out.txt")));
  ASSERT_TRUE(oProc.WaitEnd(20000));
  // Killed by the signal, or (in a sanitizer build) ended by the sanitizer's own report.
  const bool bFailed = WIFSIGNALED(oProc.Status()) ||
                       (WIFEXITED(oProc.Status()) && WEXITSTATUS(oProc.Status()) != 0);
  EXPECT_TRUE(bFailed) << Output("out.txt");
  EXPECT_EQ(Trace().find("CRITICAL ERROR"), std::string::npos);
  EXPECT_EQ(Output("out.txt").find("Run-time error '10000'"), std::string::npos);
}

// Whatever the command line holds, the program starts, runs and stops normally.
TEST_F(StartupTest, AnyCommandLineIsSafe) {
  std::mt19937 rng(7);
  std::string sRandom;
  for (int i = 0; i < 100000; ++i) {
    char c = static_cast<char>(1 + rng() % 255);
    if (c == 'c' || c == 'C') c = '/';  // keep "/CRASH" out
    sRandom += c;
  }
  const std::vector<std::vector<std::string>> aLines = {
      {sRandom},
      {"-platform", "nonexistent", "-style", "none", "--help", "-h", "-qwindowgeometry", "1x1"},
      {"", "", ""},
      {"/", "/ ", " /", "\\\\", "\\\\\\", "\"", "'\n\t\r"},
      {std::string(5000, '/')},
      {std::string(5000, ' ') + "/DEBUG" + std::string(5000, ' ')},
  };
  int iCase = 0;
  for (const auto& aArgs : aLines) {
    SCOPED_TRACE(iCase++);
    RunningProgram oProc;
    ASSERT_TRUE(oProc.Start(m_sProgram, aArgs, PathIn("out.txt")));
    ASSERT_TRUE(WaitForHandler()) << Output("out.txt");
    ASSERT_TRUE(oProc.Running());
    oProc.Signal(SIGTERM);
    ASSERT_TRUE(oProc.WaitEnd(5000));
    ASSERT_TRUE(WIFEXITED(oProc.Status())) << Output("out.txt");
    EXPECT_EQ(WEXITSTATUS(oProc.Status()), 0);
  }
  // No arguments at all, not even the program's name.
  RunningProgram oBare;
  ASSERT_TRUE(oBare.Start(m_sProgram, {}, PathIn("out.txt"), {}, true));
  ASSERT_TRUE(WaitForHandler()) << Output("out.txt");
  oBare.Signal(SIGTERM);
  ASSERT_TRUE(oBare.WaitEnd(5000));
  EXPECT_TRUE(WIFEXITED(oBare.Status())) << Output("out.txt");
}
