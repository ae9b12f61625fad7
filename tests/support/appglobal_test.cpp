#include "support/AppGlobal.h"

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <regex>
#include <set>

#include "common/TempRoot.h"
#include "support/MsgBox.h"

using Args = std::vector<std::string>;

namespace {
// Waits up to iTries times 20 ms for the process to end (gone, or a zombie waiting for
// whoever inherited it); kills it when it does not, so that no test leaves it running.
bool EndsSoon(pid_t pid, int iTries) {
  auto running = [pid] {
    std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
    std::string sNum, sName, sState;
    return static_cast<bool>(stat >> sNum >> sName >> sState) && sState != "Z" && sState != "X";
  };
  for (int i = 0; i < iTries; ++i) {
    if (!running()) return true;
    usleep(20000);
  }
  kill(pid, SIGKILL);
  return false;
}
}  // namespace

TEST(AppGlobalTest, ArgumentLineSplitsAsTheWindowsRuntime) {
  EXPECT_EQ(AppGlobal::SplitArgLine("/SRCFILE=\"/a b/c.wav\" /DSTFILE=\"/x/y.mp3\""),
            (Args{"/SRCFILE=/a b/c.wav", "/DSTFILE=/x/y.mp3"}));
  EXPECT_EQ(AppGlobal::SplitArgLine("  a\t b  "), (Args{"a", "b"}));
  EXPECT_EQ(AppGlobal::SplitArgLine("C:\\dir\\file"), (Args{"C:\\dir\\file"}));
  EXPECT_EQ(AppGlobal::SplitArgLine("a\\\\\"b c\""), (Args{"a\\b c"}));  // 2 backslashes + quote
  EXPECT_EQ(AppGlobal::SplitArgLine("a\\\"b"), (Args{"a\"b"}));          // escaped quote
  EXPECT_EQ(AppGlobal::SplitArgLine("\"\""), (Args{""}));
  EXPECT_EQ(AppGlobal::SplitArgLine(""), Args{});
}

// A program started by a parent that is then killed must not run on: the
// copier would go on writing into an hour the next run works on.
class AppGlobalRunTest : public TempRootTest {};

TEST_F(AppGlobalRunTest, ChildEndsWhenTheParentIsKilled) {
  const std::filesystem::path pPid = PathIn("pid");
  const pid_t parent = fork();
  ASSERT_GE(parent, 0);
  if (parent == 0) {
    const std::string sScript =
        "echo $$ > " + pPid.string() + ".tmp && mv " + pPid.string() + ".tmp " + pPid.string() + " && exec sleep 60";
    AppGlobal::RunAndWait("/bin/sh", "-c \"" + sScript + "\"");
    _exit(0);
  }
  for (int i = 0; i < 500 && !std::filesystem::exists(pPid); ++i) usleep(20000);
  ASSERT_TRUE(std::filesystem::exists(pPid)) << "the program never started";
  pid_t child = 0;
  std::ifstream(pPid) >> child;
  ASSERT_GT(child, 0);
  ASSERT_EQ(kill(parent, SIGKILL), 0);
  int iStatus = 0;
  ASSERT_EQ(waitpid(parent, &iStatus, 0), parent);

  EXPECT_TRUE(EndsSoon(child, 500)) << "the program outlived its killed parent";
}

TEST_F(AppGlobalRunTest, ArgumentsArriveIntactAsAVectorAndThroughTheQuotedLine) {
  const Args aOdd = {"/SRCFILE=/a b/\"q\" c.wav", "tail\\", "back\\\"slash", "", "a\tb", "$(x);`y`'z'",
                     "\\\\srv\\share\\"};
  std::string sLine;
  for (const std::string& s : aOdd) sLine += (sLine.empty() ? "" : " ") + AppGlobal::QuoteArgument(s);
  EXPECT_EQ(AppGlobal::SplitArgLine(sLine), aOdd) << sLine;

  // A program that writes each of its arguments, NUL-ended, to a file.
  const std::string sOut = PathIn("args");
  WriteFile("echo.sh", "#!/bin/sh\nfor a in \"$@\"; do printf '%s\\0' \"$a\"; done > '" + sOut + "'\n");
  std::filesystem::permissions(PathIn("echo.sh"), std::filesystem::perms::owner_all);
  auto received = [&] {
    const std::string s = ReadFile("args");
    Args a;
    for (size_t i = 0, j; (j = s.find('\0', i)) != std::string::npos; i = j + 1) a.push_back(s.substr(i, j - i));
    return a;
  };
  const AppGlobal::RunResult r = AppGlobal::RunProgram(PathIn("echo.sh"), aOdd);
  EXPECT_EQ(std::pair(r.eOutcome, r.lExitCode), std::pair(AppGlobal::RunOutcome::Exited, 0));
  EXPECT_EQ(received(), aOdd);
  EXPECT_EQ(AppGlobal::RunAndWait(PathIn("echo.sh"), sLine), 0);
  EXPECT_EQ(received(), aOdd);
  // The exit status comes back; a program that cannot start gives -1.
  EXPECT_EQ(AppGlobal::RunAndWait("/bin/sh", "-c \"exit 3\""), 3);
  EXPECT_EQ(AppGlobal::RunAndWait("/no/such/program", "x"), -1);
}

// A program that must be ended: on a stop request (it dies of SIGTERM, with a child of
// its own), and on a time-out (it ignores SIGTERM, so SIGKILL follows the grace).
TEST_F(AppGlobalRunTest, AProgramIsEndedOnAStopOrATimeOutWhileTheWaitPumps) {
  const std::string sPid = PathIn("grandchild");
  struct Case {
    const char* sScript;
    int iStopAfterPumps;  // 0: never
    int32_t lTimeoutSecs;
    AppGlobal::RunOutcome eWant;
  };
  for (const Case& c :
       {Case{"sleep 60 & echo $! > '%s'; wait", 3, 0, AppGlobal::RunOutcome::Stopped},
        Case{"trap '' TERM; sleep 60 & echo $! > '%s'; wait; wait", 0, 1, AppGlobal::RunOutcome::TimedOut},
        Case{"echo > '%s'; exit 4", 0, 30, AppGlobal::RunOutcome::Exited}}) {
    std::filesystem::remove(sPid);
    std::string sScript = c.sScript;
    sScript.replace(sScript.find("%s"), 2, sPid);
    int iPumps = 0;
    AppGlobal::RunControl oControl;
    oControl.lTimeoutSecs = c.lTimeoutSecs;
    oControl.lGraceMs = 300;
    oControl.bOwnGroup = true;
    oControl.fnWhileWaiting = [&] { ++iPumps; };
    oControl.fnStopRequested = [&] {
      // Asked only once the program has written its child's number.
      return c.iStopAfterPumps > 0 && std::filesystem::exists(sPid) && iPumps >= c.iStopAfterPumps;
    };
    const auto tStart = std::chrono::steady_clock::now();
    const AppGlobal::RunResult r = AppGlobal::RunProgram("/bin/sh", {"-c", sScript}, oControl);
    const auto lMs =
        std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - tStart).count();
    EXPECT_EQ(r.eOutcome, c.eWant) << c.sScript;
    EXPECT_EQ(r.lExitCode, c.eWant == AppGlobal::RunOutcome::Exited ? 4 : -1) << c.sScript;
    EXPECT_LT(lMs, 20000) << c.sScript;
    if (c.eWant == AppGlobal::RunOutcome::TimedOut) {
      EXPECT_GE(lMs, 1000);
    }
    if (c.eWant == AppGlobal::RunOutcome::Exited) continue;
    EXPECT_GE(iPumps, 1) << c.sScript;
    // The program's own child went with it.
    pid_t child = 0;
    std::ifstream(sPid) >> child;
    ASSERT_GT(child, 0) << c.sScript;
    EXPECT_TRUE(EndsSoon(child, 100)) << c.sScript;
  }
  const AppGlobal::RunResult r = AppGlobal::RunProgram("/no/such/program", {});
  EXPECT_EQ(r.eOutcome, AppGlobal::RunOutcome::NotStarted);
}

TEST(AppGlobalTest, TextHelpers) {
  EXPECT_EQ(AppGlobal::PadLeftText("42", 10), "        42");
  EXPECT_EQ(AppGlobal::PadLeftText("12345678901", 10), "12345678901");
  const std::string secret = "Pass word \"1\"; x=y \x7f";
  std::string once = AppGlobal::ScrambleText(secret, true);
  EXPECT_NE(once, secret);
  EXPECT_EQ(AppGlobal::ScrambleText(once, true), secret);
  std::set<std::string> ids;
  for (int i = 0; i < 100; ++i) {
    std::string g = AppGlobal::NewGUID();
    ASSERT_TRUE(std::regex_match(g, std::regex(R"(\{[0-9A-F]{8}(-[0-9A-F]{4}){3}-[0-9A-F]{12}\})"))) << g;
    ids.insert(g);
  }
  EXPECT_EQ(ids.size(), 100u);
  const uint8_t bytes[] = {0x00, 0x1a, 0xff};
  EXPECT_EQ(AppGlobal::ByteArrayText(bytes, 3), "00 1A FF");
}

TEST(AppGlobalTest, HeadlessMessageBoxAnswersItsDefaultButton) {
  testing::internal::CaptureStderr();
  EXPECT_EQ(MsgBox("Are you sure?", vbYesNo | vbQuestion), vbYes);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "<5>knlogproc: Log Processor: Are you sure?\n");
  // The journal's priority follows the box's icon: critical an error, the rest warnings.
  testing::internal::CaptureStderr();
  MsgBox("Stopped", vbCritical, "T");
  MsgBox("Careful", vbExclamation | vbYesNo, "T");
  MsgBox("Plain", vbOKOnly, "T");
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "<3>knlogproc: T: Stopped\n<4>knlogproc: T: Careful\n<4>knlogproc: T: Plain\n");
  std::string seen;
  auto old = SetMsgBoxHandler([&](const std::string& t, int32_t, const std::string&) {
    seen = t;
    return vbNo;
  });
  EXPECT_EQ(MsgBox("Q", vbYesNo), vbNo);
  EXPECT_EQ(seen, "Q");
  SetMsgBoxHandler(nullptr);
}
