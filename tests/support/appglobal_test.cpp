#include "support/AppGlobal.h"

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <regex>
#include <set>

#include "common/TempRoot.h"
#include "support/MsgBox.h"

using Args = std::vector<std::string>;

TEST(AppGlobalTest, ArgumentLineSplitsAsTheWindowsRuntime) {
  EXPECT_EQ(AppGlobal::SplitArgLine("/SRCFILE=\"/a b/c.wav\" /DSTFILE=\"/x/y.mp3\""),
            (Args{"/SRCFILE=/a b/c.wav", "/DSTFILE=/x/y.mp3"}));
  EXPECT_EQ(AppGlobal::SplitArgLine("  a\t b  "), (Args{"a", "b"}));
  EXPECT_EQ(AppGlobal::SplitArgLine("C:\\dir\\file"), (Args{"C:\\dir\\file"}));
  EXPECT_EQ(AppGlobal::SplitArgLine("a\\\\\"b c\""), (Args{"a\\b c"}));  // 2 backslashes + quote
  EXPECT_EQ(AppGlobal::SplitArgLine("a\\\"b"), (Args{"a\"b"}));           // escaped quote
  EXPECT_EQ(AppGlobal::SplitArgLine("\"\""), (Args{""}));
  EXPECT_EQ(AppGlobal::SplitArgLine(""), Args{});
}

TEST(AppGlobalTest, RunAndWaitReturnsTheExitStatusWithoutAShell) {
  EXPECT_EQ(AppGlobal::RunAndWait("/bin/sh", "-c \"exit 3\""), 3);
  EXPECT_EQ(AppGlobal::RunAndWait("/bin/true", ""), 0);
  EXPECT_EQ(AppGlobal::RunAndWait("/no/such/program", "x"), -1);
  // Shell syntax in an argument reaches the program as text.
  EXPECT_EQ(AppGlobal::RunAndWait("/bin/sh", "-c \"test \\\"$0\\\" = \\\"a;b\\\"\" \"a;b\""), 0);
}

// A program started by a parent that is then killed must not run on: the
// copier would go on writing into an hour the next run works on.
class AppGlobalRunTest : public TempRootTest {};

TEST_F(AppGlobalRunTest, ChildEndsWhenTheParentIsKilled) {
  const std::filesystem::path pPid = PathIn("pid");
  const pid_t parent = fork();
  ASSERT_GE(parent, 0);
  if (parent == 0) {
    const std::string sScript = "echo $$ > " + pPid.string() + ".tmp && mv " + pPid.string() +
                                ".tmp " + pPid.string() + " && exec sleep 60";
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

  // Gone, or a zombie waiting for whoever inherited it.
  auto running = [child] {
    std::ifstream stat("/proc/" + std::to_string(child) + "/stat");
    std::string sPid, sName, sState;
    if (!(stat >> sPid >> sName >> sState)) return false;
    return sState != "Z" && sState != "X";
  };
  bool bRunning = true;
  for (int i = 0; i < 500 && (bRunning = running()); ++i) usleep(20000);
  if (bRunning) kill(child, SIGKILL);
  EXPECT_FALSE(bRunning) << "the program outlived its killed parent";
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
  EXPECT_DOUBLE_EQ(AppGlobal::LargeToDouble(5, 1), 4294967301.0);
  const uint8_t bytes[] = {0x00, 0x1a, 0xff};
  EXPECT_EQ(AppGlobal::ByteArrayText(bytes, 3), "00 1A FF");
}

TEST(AppGlobalTest, HeadlessMessageBoxAnswersItsDefaultButton) {
  EXPECT_EQ(DefaultAnswer(vbYesNo | vbQuestion), vbYes);
  EXPECT_EQ(DefaultAnswer(vbCritical), vbOK);
  testing::internal::CaptureStderr();
  EXPECT_EQ(MsgBox("Are you sure?", vbYesNo | vbQuestion), vbYes);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "<5>knlogproc: Log Processor: Are you sure?\n");
  // The journal's priority follows the box's icon: critical an error, the rest warnings.
  testing::internal::CaptureStderr();
  MsgBox("Stopped", vbCritical, "T");
  MsgBox("Careful", vbExclamation | vbYesNo, "T");
  MsgBox("Plain", vbOKOnly, "T");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "<3>knlogproc: T: Stopped\n<4>knlogproc: T: Careful\n<4>knlogproc: T: Plain\n");
  std::string seen;
  auto old = SetMsgBoxHandler([&](const std::string& t, int32_t, const std::string&) {
    seen = t;
    return vbNo;
  });
  EXPECT_EQ(MsgBox("Q", vbYesNo), vbNo);
  EXPECT_EQ(seen, "Q");
  SetMsgBoxHandler(nullptr);
}
