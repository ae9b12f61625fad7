// The processor started as a program: trace, second copies, stop signals, odd command
// lines and the crash switch.
#include <gtest/gtest.h>

#include <sys/wait.h>

#include <filesystem>
#include <random>
#include <regex>
#include <string>
#include <vector>

#include "RunningProgram.h"

namespace fs = std::filesystem;

using StartupTest = ProcessorTest;

// A debug run traces its start, waits for loggers and stops at SIGTERM, SIGINT or SIGHUP;
// with a platform named it runs as a windowed application with the same engine.
TEST_F(StartupTest, DebugRunTracesWaitsForLoggersAndStopsOnASignal) {
  for (const auto& [iSignal, sEnv] :
       {std::pair{SIGTERM, ""}, std::pair{SIGINT, ""}, std::pair{SIGHUP, "QT_QPA_PLATFORM=offscreen"}}) {
    SCOPED_TRACE(iSignal);
    fs::remove_all(PathIn("drive_c/DebugFiles"));
    RunningProgram oProc;
    ASSERT_TRUE(oProc.Start(m_sProgram, {"/DEBUG"}, PathIn("out.txt"),
                            *sEnv ? std::vector<std::string>{sEnv} : std::vector<std::string>{}));
    ASSERT_TRUE(WaitForTrace("No Logs Found: Reset wait timer")) << ReadFile("out.txt");
    const std::string sTrace = Trace();
    EXPECT_TRUE(std::regex_search(
        sTrace, std::regex(R"(\d\d:\d\d:\d\d Start Sub Main\r\n\d\d:\d\d:\d\d     DebugMode = 5\r\n)"),
        std::regex_constants::match_continuous))
        << sTrace;
    EXPECT_NE(sTrace.find("     sLogListLoc = SOFTWARE\\Norvane\\Kestrane v4\\Capture\r\n"), std::string::npos);
    EXPECT_NE(sTrace.find(" End Sub Main\r\n"), std::string::npos);
    // It goes on waiting: no logger ever ends the program by itself.
    std::this_thread::sleep_for(std::chrono::milliseconds(1500));
    ASSERT_TRUE(oProc.Running());
    // The wait timer ticks once a second; the stop comes at its next tick.
    oProc.Signal(iSignal);
    ASSERT_TRUE(oProc.WaitEnd(5000));
    EXPECT_EQ(oProc.ExitCode(), 0) << ReadFile("out.txt");
    const std::string sEnd = Trace();
    for (const char* s : {"Shutdown Message Received", " End frmProcessLogs_Unload\r\n", "Clear Exception Filter"})
      EXPECT_NE(sEnd.find(s), std::string::npos) << s;
    EXPECT_FALSE(Bound());
  }
}

TEST_F(StartupTest, SecondCopyEndsAtOnceAndLeavesTheFirstAlone) {
  RunningProgram oFirst;
  ASSERT_TRUE(oFirst.Start(m_sProgram, {"/DEBUG"}, PathIn("first.txt")));
  ASSERT_TRUE(WaitForTrace("No Logs Found: Reset wait timer"));

  RunningProgram oSecond;
  ASSERT_TRUE(oSecond.Start(m_sProgram, {"/debug"}, PathIn("second.txt")));
  ASSERT_TRUE(oSecond.WaitEnd(20000));
  EXPECT_TRUE(WIFEXITED(oSecond.Status()));
  EXPECT_NE(ReadFile("second.txt").find("There is already a copy of the Log Processor running!"), std::string::npos)
      << ReadFile("second.txt");
  EXPECT_NE(Trace().find("LogProc is running.  Warn user and exit"), std::string::npos);

  RunningProgram oSilent;
  ASSERT_TRUE(oSilent.Start(m_sProgram, {"/SILENT"}, PathIn("silent.txt")));
  ASSERT_TRUE(oSilent.WaitEnd(20000));
  EXPECT_TRUE(WIFEXITED(oSilent.Status()));
  EXPECT_EQ(ReadFile("silent.txt"), "");

  // The first one runs on and still owns its message handler.
  EXPECT_TRUE(oFirst.Running());
  EXPECT_TRUE(Bound());
  oFirst.Signal(SIGTERM);
  ASSERT_TRUE(oFirst.WaitEnd(5000));
  EXPECT_EQ(ReadFile("first.txt"), "");
}

// "/CRASH" ends the program through the crash filter; with the filter switched off in
// the registry it still ends, without the filter's report.
TEST_F(StartupTest, CrashSwitchEndsTheProgramWithOrWithoutTheFilter) {
  RunningProgram oProc;
  ASSERT_TRUE(oProc.Start(m_sProgram, {"/DEBUG", "/CRASH"}, PathIn("out.txt")));
  ASSERT_TRUE(oProc.WaitEnd(20000));
  ASSERT_TRUE(WIFSIGNALED(oProc.Status())) << ReadFile("out.txt");
  EXPECT_EQ(WTERMSIG(oProc.Status()), SIGFPE);
  const std::string sTrace = Trace();
  EXPECT_NE(sTrace.find("Load frmProcessLogs"), std::string::npos);
  EXPECT_NE(sTrace.find(" CRITICAL ERROR: Divide By Zero\r\n"), std::string::npos) << sTrace;
  EXPECT_NE(ReadFile("out.txt").find("Run-time error '10000': Divide By Zero"), std::string::npos);

  fs::remove_all(PathIn("drive_c/DebugFiles"));
  WriteFile("registry.reg",
            "Windows Registry Editor Version 5.00\r\n\r\n"
            "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Norvane\\Kestrane v4\\Log Processor]\r\n"
            "\"UseExceptionHandler\"=dword:00000000\r\n");
  RunningProgram oUnfiltered;
  ASSERT_TRUE(oUnfiltered.Start(m_sProgram, {"/DEBUG", "/crash"}, PathIn("out.txt")));
  ASSERT_TRUE(oUnfiltered.WaitEnd(20000));
  // Killed by the signal, or (in a sanitizer build) ended by the sanitizer's own report.
  EXPECT_NE(oUnfiltered.ExitCode(), 0) << ReadFile("out.txt");
  EXPECT_NE(Trace().find("Load frmProcessLogs"), std::string::npos);
  EXPECT_EQ(Trace().find("CRITICAL ERROR"), std::string::npos);
  EXPECT_EQ(ReadFile("out.txt").find("Run-time error '10000'"), std::string::npos);
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
      {},
  };
  for (size_t i = 0; i <= aLines.size(); ++i) {
    SCOPED_TRACE(i);
    // The last run has no arguments at all, not even the program's name.
    const bool bBare = i == aLines.size();
    RunningProgram oProc;
    ASSERT_TRUE(oProc.Start(m_sProgram, bBare ? aLines.back() : aLines[i], PathIn("out.txt"), {}, bBare));
    ASSERT_TRUE(WaitFor([&] { return Bound(); }, 20000)) << ReadFile("out.txt");
    ASSERT_TRUE(oProc.Running());
    oProc.Signal(SIGTERM);
    ASSERT_TRUE(oProc.WaitEnd(5000));
    EXPECT_EQ(oProc.ExitCode(), 0) << ReadFile("out.txt");
  }
}
