// Messages between a running processor and the capture process, with knmsg as the
// capture side.
#include <gtest/gtest.h>

#include <sys/wait.h>

#include <ctime>
#include <filesystem>
#include <regex>
#include <string>
#include <vector>

#include "RunningProgram.h"
#include "common/TempRoot.h"
#include "support/MessageTransport.h"

namespace fs = std::filesystem;

namespace {

// Seconds since the epoch of a local "yyyy-mm-dd hh:nn:ss", -1 when it doesn't parse.
long long LocalSeconds(const std::string& sText) {
  std::tm tm{};
  if (std::sscanf(sText.c_str(), "%d-%d-%d %d:%d:%d", &tm.tm_year, &tm.tm_mon, &tm.tm_mday,
                  &tm.tm_hour, &tm.tm_min, &tm.tm_sec) != 6)
    return -1;
  tm.tm_year -= 1900;
  tm.tm_mon -= 1;
  tm.tm_isdst = -1;
  return static_cast<long long>(std::mktime(&tm));
}

}  // namespace

class MessagesTest : public TempRootTest {
 protected:
  void SetUp() override {
    TempRootTest::SetUp();
    fs::create_directories(PathIn("bin"));
    m_sProgram = PathIn("bin/knlogproc");
    fs::copy_file(BinPath("knlogproc"), m_sProgram);
  }

  // Starts the processor and waits until it is in its "no logs" wait.
  void StartProcessor(const std::vector<std::string>& aArgs = {"/DEBUG"}) {
    ASSERT_TRUE(m_oProc.Start(m_sProgram, aArgs, PathIn("proc.txt")));
    ASSERT_TRUE(WaitFor([&] { return fs::exists(fs::symlink_status(PathIn("run/msg/KNLogProcMsgHandler"))); },
                        20000));
  }
  int Knmsg(const std::string& sArgs, std::string* psOut = nullptr) {
    return RunProgram(BinPath("knmsg") + " " + sArgs, psOut);
  }
  std::string Trace() const {
    std::string sAll;
    std::error_code ec;
    for (auto& e : fs::directory_iterator(PathIn("drive_c/DebugFiles"), ec)) sAll += ReadText(e.path().string());
    return sAll;
  }

  std::string m_sProgram;
  RunningProgram m_oProc;
};

TEST_F(MessagesTest, RespondIsAnsweredWithARecentLastActiveTime) {
  MessageEndpoint oCapture;
  ASSERT_TRUE(oCapture.Bind("KNCaptureMsgHandler"));
  StartProcessor();
  // Let the wait timer tick a few times first.
  std::this_thread::sleep_for(std::chrono::milliseconds(2500));
  for (int i = 0; i < 3; ++i) {
    ASSERT_EQ(Knmsg("send KNLogProcMsgHandler RESPOND"), 0);
    auto oReply = oCapture.Wait(5000);
    const long long llNow = static_cast<long long>(std::time(nullptr));
    ASSERT_TRUE(oReply);
    ASSERT_TRUE(std::regex_match(oReply->Text,
                                 std::regex(R"(RESPONSE\d{4}-\d\d-\d\d \d\d:\d\d:\d\d)")))
        << oReply->Text;
    const long long llWhen = LocalSeconds(oReply->Text.substr(8));
    // Refreshed every second by the wait timer. The text rounds to the nearest whole
    // second and the clock read just after the reply is cut to one, so the text may
    // stand up to a second ahead of it, and at most 2 behind.
    EXPECT_LE(llNow - llWhen, 2) << oReply->Text;
    EXPECT_GE(llNow - llWhen, -1) << oReply->Text;
    std::this_thread::sleep_for(std::chrono::milliseconds(700));
  }
  EXPECT_EQ(Trace().find("Responding with"), std::string::npos);  // a level 10 line
}

TEST_F(MessagesTest, ShutdownEndsTheProcessorAndItSaysIdle) {
  MessageEndpoint oCapture;
  ASSERT_TRUE(oCapture.Bind("KNCaptureMsgHandler"));
  StartProcessor();
  ASSERT_EQ(Knmsg("send KNLogProcMsgHandler SHUTDOWN"), 0);
  ASSERT_TRUE(m_oProc.WaitEnd(5000));
  ASSERT_TRUE(WIFEXITED(m_oProc.Status()));
  EXPECT_EQ(WEXITSTATUS(m_oProc.Status()), 0);
  std::vector<std::string> aTexts;
  while (auto m = oCapture.Wait(300)) aTexts.push_back(m->Text);
  EXPECT_EQ(aTexts, std::vector<std::string>{"IDLE"});
  const std::string sTrace = Trace();
  EXPECT_NE(sTrace.find("Shutdown Message Received"), std::string::npos);
  EXPECT_NE(sTrace.find("End frmProcessLogs_Unload"), std::string::npos);
}

TEST_F(MessagesTest, ShutdownInLowerCaseIsIgnored) {
  MessageEndpoint oCapture;
  ASSERT_TRUE(oCapture.Bind("KNCaptureMsgHandler"));
  StartProcessor();
  ASSERT_EQ(Knmsg("send KNLogProcMsgHandler shutdown"), 0);
  ASSERT_EQ(Knmsg("send KNLogProcMsgHandler 'SHUTDOWN NOW'"), 0);
  std::this_thread::sleep_for(std::chrono::milliseconds(2500));
  EXPECT_TRUE(m_oProc.Running());
  EXPECT_EQ(Trace().find("Shutdown Message Received"), std::string::npos);
  EXPECT_FALSE(oCapture.Receive());
  ASSERT_EQ(Knmsg("send KNLogProcMsgHandler RESPOND"), 0);
  auto oReply = oCapture.Wait(5000);
  ASSERT_TRUE(oReply);
  EXPECT_EQ(oReply->Text.rfind("RESPONSE", 0), 0u);
}

TEST_F(MessagesTest, NoCaptureProcessListeningHindersNothing) {
  StartProcessor();
  for (int i = 0; i < 5; ++i) ASSERT_EQ(Knmsg("send KNLogProcMsgHandler RESPOND"), 0);
  std::this_thread::sleep_for(std::chrono::milliseconds(500));
  ASSERT_TRUE(m_oProc.Running());
  // A capture process that comes later gets its answers.
  MessageEndpoint oCapture;
  ASSERT_TRUE(oCapture.Bind("KNCaptureMsgHandler"));
  ASSERT_EQ(Knmsg("send KNLogProcMsgHandler RESPOND"), 0);
  auto oReply = oCapture.Wait(5000);
  ASSERT_TRUE(oReply);
  EXPECT_EQ(oReply->Text.rfind("RESPONSE", 0), 0u);
  oCapture.Close();
  // And its end goes unnoticed too: the shutdown still works.
  ASSERT_EQ(Knmsg("send KNLogProcMsgHandler SHUTDOWN"), 0);
  ASSERT_TRUE(m_oProc.WaitEnd(5000));
  EXPECT_TRUE(WIFEXITED(m_oProc.Status()));
}

TEST_F(MessagesTest, KnmsgListenPrintsEachMessageWithItsTime) {
  RunningProgram oListen;
  ASSERT_TRUE(oListen.Start(BinPath("knmsg"), {"listen", "-n", "2", "-t", "20", "KNCaptureMsgHandler"},
                            PathIn("listen.txt")));
  ASSERT_TRUE(WaitFor([&] { return fs::exists(fs::symlink_status(PathIn("run/msg/KNCaptureMsgHandler"))); },
                      10000));
  StartProcessor();
  ASSERT_EQ(Knmsg("send KNLogProcMsgHandler RESPOND"), 0);
  ASSERT_EQ(Knmsg("send KNLogProcMsgHandler SHUTDOWN"), 0);
  ASSERT_TRUE(oListen.WaitEnd(10000));
  ASSERT_TRUE(m_oProc.WaitEnd(5000));
  const std::string sOut = ReadText(PathIn("listen.txt"));
  EXPECT_TRUE(std::regex_match(
      sOut, std::regex(R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} RESPONSE\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\n)"
                       R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} IDLE\n)")))
      << sOut;
  // The listener gives its handler name up when it ends.
  EXPECT_FALSE(fs::exists(fs::symlink_status(PathIn("run/msg/KNCaptureMsgHandler"))));
}

TEST_F(MessagesTest, KnmsgReportsWhatItCannotDo) {
  std::string sOut;
  EXPECT_EQ(Knmsg("send KNLogProcMsgHandler RESPOND", &sOut), 1);
  EXPECT_NE(sOut.find("nobody received"), std::string::npos) << sOut;
  EXPECT_EQ(Knmsg("", &sOut), 2);
  EXPECT_EQ(Knmsg("send OnlyAHandler", &sOut), 2);
  EXPECT_EQ(Knmsg("listen -n x Name", &sOut), 2);
  EXPECT_EQ(Knmsg("shout Name text", &sOut), 2);
  // A listener that hears nothing ends after its idle time.
  EXPECT_EQ(Knmsg("listen -t 0 Quiet", &sOut), 0);
  EXPECT_EQ(sOut, "");
  // A name that is taken can't be listened on.
  MessageEndpoint oTaken;
  ASSERT_TRUE(oTaken.Bind("Taken"));
  EXPECT_EQ(Knmsg("listen -t 0 Taken", &sOut), 1);
  // A sender can give its own name.
  ASSERT_EQ(Knmsg("send --from KNCaptureMsgHandler Taken hello there"), 0);
  auto m = oTaken.Wait(1000);
  ASSERT_TRUE(m);
  EXPECT_EQ(m->Text, "hello there");
  EXPECT_EQ(m->Sender, "KNCaptureMsgHandler");
}

TEST_F(MessagesTest, WorksUnderAMachineRootLongerThanASocketAddress) {
  std::string sLong = Root();
  while (sLong.size() < 150) sLong += "/long-folder-name-for-the-machine-root";
  fs::create_directories(sLong);
  setenv("KESTRANE_ROOT", sLong.c_str(), 1);
  MessageEndpoint oCapture;
  ASSERT_TRUE(oCapture.Bind("KNCaptureMsgHandler"));
  ASSERT_TRUE(m_oProc.Start(m_sProgram, {"/DEBUG"}, PathIn("proc.txt")));
  ASSERT_TRUE(WaitFor([&] { return fs::exists(fs::symlink_status(sLong + "/run/msg/KNLogProcMsgHandler")); },
                      20000));
  ASSERT_EQ(Knmsg("send KNLogProcMsgHandler RESPOND"), 0);
  auto oReply = oCapture.Wait(5000);
  ASSERT_TRUE(oReply);
  EXPECT_EQ(oReply->Text.rfind("RESPONSE", 0), 0u);
  ASSERT_EQ(Knmsg("send KNLogProcMsgHandler SHUTDOWN"), 0);
  ASSERT_TRUE(m_oProc.WaitEnd(5000));
  auto oIdle = oCapture.Wait(2000);
  ASSERT_TRUE(oIdle);
  EXPECT_EQ(oIdle->Text, "IDLE");
}

// A cycle over a logger with nothing recorded: without "/KEEPALIVE" the program ends by
// itself, saying "IDLE" at the end of the run and again as it unloads.
TEST_F(MessagesTest, ACycleWithoutKeepAliveEndsTheProgram) {
  WriteFile("registry.reg",
            "Windows Registry Editor Version 5.00\r\n\r\n"
            "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Norvane\\Kestrane v4\\Log Processor]\r\n"
            "\"PrepareTimerInterval\"=dword:00000000\r\n"
            "\"ProcessTimerInterval\"=dword:00000000\r\n\r\n"
            "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Norvane\\Kestrane v4\\Capture]\r\n"
            "\"LogCount\"=dword:00000001\r\n\r\n"
            "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Norvane\\Kestrane v4\\Capture\\Logger1]\r\n"
            "\"LogPath\"=\"D:\\\\Kestrane\\\\Logger1\"\r\n"
            "\"Enabled\"=dword:ffffffff\r\n");
  WriteFile("drive_d/Kestrane/Logger1/Kestrane.ini", "[General]\r\nName=Studio One\r\n");
  MessageEndpoint oCapture;
  ASSERT_TRUE(oCapture.Bind("KNCaptureMsgHandler"));
  ASSERT_TRUE(m_oProc.Start(m_sProgram, {"/DEBUG"}, PathIn("proc.txt")));
  ASSERT_TRUE(m_oProc.WaitEnd(30000)) << Trace();
  ASSERT_TRUE(WIFEXITED(m_oProc.Status()));
  EXPECT_EQ(WEXITSTATUS(m_oProc.Status()), 0) << ReadText(PathIn("proc.txt"));
  std::vector<std::string> aTexts;
  while (auto m = oCapture.Wait(300)) aTexts.push_back(m->Text);
  EXPECT_EQ(aTexts, (std::vector<std::string>{"IDLE", "IDLE"}));
  const std::string sTrace = Trace();
  EXPECT_NE(sTrace.find("Logs Found: Resizing Window"), std::string::npos) << sTrace;
  EXPECT_NE(sTrace.find("End frmProcessLogs_Unload"), std::string::npos);
}
