#include "support/AppGlobal.h"

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
    ASSERT_EQ(g.size(), 38u);
    ASSERT_EQ(g.front(), '{');
    ASSERT_EQ(g[9], '-');
    for (char c : g) ASSERT_TRUE(std::string("{}-0123456789ABCDEF").find(c) != std::string::npos) << g;
    ids.insert(g);
  }
  EXPECT_EQ(ids.size(), 100u);
  EXPECT_DOUBLE_EQ(AppGlobal::LargeToDouble(5, 1), 4294967301.0);
  const uint8_t bytes[] = {0x00, 0x1a, 0xff};
  EXPECT_EQ(AppGlobal::ByteArrayText(bytes, 3), "00 1A FF");
}

TEST(AppGlobalTest, HeadlessMessageBoxAnswersItsDefaultButton) {
  EXPECT_EQ(DefaultAnswer(vbYesNo | vbQuestion), vbYes);
  EXPECT_EQ(DefaultAnswer(vbYesNo | vbDefaultButton2), vbNo);
  EXPECT_EQ(DefaultAnswer(vbCritical), vbOK);
  testing::internal::CaptureStderr();
  EXPECT_EQ(MsgBox("Are you sure?", vbYesNo | vbQuestion), vbYes);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "knlogproc: Log Processor: Are you sure?\n");
  std::string seen;
  auto old = SetMsgBoxHandler([&](const std::string& t, int32_t, const std::string&) {
    seen = t;
    return vbNo;
  });
  EXPECT_EQ(MsgBox("Q", vbYesNo), vbNo);
  EXPECT_EQ(seen, "Q");
  SetMsgBoxHandler(nullptr);
}
