#include <gtest/gtest.h>

#include "config/CLogList.h"
#include "config/ConfigTestUtil.h"
#include "support/CNVErr.h"

namespace {
const std::string kRoot = "SOFTWARE\\Norvane\\Kestrane v4\\Capture";

std::string LoggerKey(int n, bool bEnabled, const std::string& sPath, const std::string& sExtra = "") {
  return "[HKEY_LOCAL_MACHINE\\" + kRoot + "\\Logger" + std::to_string(n) + "]\r\n\"LogPath\"=\"" + sPath +
         "\"\r\n\"Enabled\"=dword:" + (bEnabled ? "ffffffff" : "00000000") + "\r\n" + sExtra + "\r\n";
}
}  // namespace

class LogListTest : public ConfigTest {
 protected:
  void TearDown() override {
    LogList().Clear();
    ConfigTest::TearDown();
  }
  void Settings(int n, const std::string& sBody = "[General]\r\nOutputCount=1\r\n") const {
    WriteFile("drive_d/Kestrane/Logger" + std::to_string(n) + "/Kestrane.ini", sBody);
  }
  void ThreeLoggers(const std::string& sCount = "dword:00000003") const {
    WriteRegistry("[HKEY_LOCAL_MACHINE\\" + kRoot + "]\r\n\"LogCount\"=" + sCount + "\r\n\r\n" +
                  LoggerKey(1, true, "D:\\\\Kestrane\\\\Logger1") + LoggerKey(2, false, "D:\\\\Kestrane\\\\Logger2") +
                  LoggerKey(3, true, "D:\\\\Kestrane\\\\Logger3"));
  }
};

TEST_F(LogListTest, LoadsOnlyEnabledLoggersWithSettings) {
  ThreeLoggers();
  Settings(3);
  CLogList& list = LogList();
  list.LoadLogs(kRoot);
  ASSERT_EQ(list.Count(), 1);
  EXPECT_EQ(list.Log(1)->logNum(), 3);
  EXPECT_EQ(list.Stream(2), nullptr);
  EXPECT_NE(Trace().find("Failed to load \"D:\\Kestrane\\Logger1\""), std::string::npos) << Trace();
  EXPECT_NE(Trace().find("Logs to retrieve: 3"), std::string::npos);

  // A second load starts afresh; logger 2 stays out, disabled.
  for (int n : {1, 2}) Settings(n);
  list.LoadLogs(kRoot);
  ASSERT_EQ(list.Count(), 2);
  EXPECT_EQ(list.Log(1)->logNum(), 1);
  EXPECT_EQ(list.Log(2)->logNum(), 3);
  EXPECT_EQ(list.Stream(2)->LogPath(), "D:\\Kestrane\\Logger3");
  EXPECT_EQ(list.Stream(2)->logNum(), 0);
  for (int i : {-1, 0, 3}) EXPECT_TRUE(!list.Log(i) && !list.Stream(i)) << i;
}

TEST_F(LogListTest, BadChannelModeSkipsOnlyThatLogger) {
  WriteRegistry("[HKEY_LOCAL_MACHINE\\" + kRoot + "]\r\n\"LogCount\"=dword:00000002\r\n\r\n" +
                LoggerKey(1, true, "D:\\\\Kestrane\\\\Logger1", "\"ChannelMode\"=dword:00000009") +
                LoggerKey(2, true, "D:\\\\Kestrane\\\\Logger2"));
  for (int n : {1, 2}) Settings(n);
  LogList().LoadLogs(kRoot);
  ASSERT_EQ(LogList().Count(), 1);
  EXPECT_EQ(LogList().Log(1)->logNum(), 2);
  EXPECT_NE(Trace().find("Skip logger 1: Channel Mode 9 is not valid!"), std::string::npos) << Trace();
}

TEST_F(LogListTest, NoCountOrTooBigACount) {
  LogList().LoadLogs(kRoot);
  EXPECT_EQ(LogList().Count(), 0);
  ThreeLoggers("dword:00010000");
  Settings(1);
  LogList().LoadLog(kRoot, 1);
  ASSERT_EQ(LogList().Count(), 1);
  try {
    LogList().LoadLogs(kRoot);
    FAIL() << "no error";
  } catch (const RaisedError& e) {
    EXPECT_EQ(e.Number, 6);
  }
  EXPECT_EQ(LogList().Count(), 0);
}

TEST_F(LogListTest, ClearTerminatesAndCopyIsIndependent) {
  ThreeLoggers();
  Settings(1);
  Settings(3);
  CLogList list;
  list.Clear();
  EXPECT_NE(Trace().find("Clearing 0 items"), std::string::npos);
  list.LoadLogs(kRoot);
  ASSERT_EQ(list.Count(), 2);
  auto copy = list.Copy();
  ASSERT_EQ(copy->Count(), 2);
  EXPECT_NE(copy->Log(1), list.Log(1));
  EXPECT_NE(copy->Stream(1), list.Stream(1));
  EXPECT_NE(copy->Log(1)->GUID(), list.Log(1)->GUID());
  EXPECT_EQ(copy->Stream(2)->LogPath(), "D:\\Kestrane\\Logger3");
  auto line = list.Log(1)->HardwareLines(0);
  auto kept = list.Log(1);
  list.Clear();
  EXPECT_EQ(list.Count(), 0);
  EXPECT_EQ(list.Log(1), nullptr);
  EXPECT_EQ(kept->HardwareLines(0), nullptr);  // terminated
  EXPECT_EQ(line->callback, nullptr);
  copy->Clear();
  EXPECT_EQ(CLogList().Copy()->Count(), 0);
}
